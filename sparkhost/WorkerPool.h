#pragma once
// The stand-in host's workers behind sparkMpFork: persistent threads woken per fork. The calling
// thread runs worker 0 itself and waits for the others. Each worker's slice of the frame is an
// equal share, in worker order, of the frame size the host sets here.

// Number of workers used by the next forks, 1 to 127 (a host's record offers the count as a
// signed byte). Not to be changed during a fork.
void SparkHostSetWorkerCount(int count);
int SparkHostWorkerCount();

// How long a waiting thread spins, in microseconds, before it sleeps in the kernel until woken:
// workers between forks, and the forking thread waiting for the others. Forks come thousands of
// times per frame, back to back, so a spin catches the next one without a wake-up, which costs
// more than the work of a small fork; a spin bounded in time rather than in pause instructions
// behaves alike on processors whose pause differs tenfold in length. On a loaded machine the
// bound keeps a waiting thread from holding a core a late worker needs for long.
inline constexpr int kSparkHostDefaultSpinMicroseconds = 80;
void SparkHostSetWorkerSpin(int microseconds);
int SparkHostWorkerSpin();
// Frame size whose pixels are sliced among the workers.
void SparkHostSetFrameSize(int width, int height);
