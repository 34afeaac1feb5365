#pragma once
// The stand-in host's workers behind sparkMpFork: persistent threads woken per fork. The calling
// thread runs worker 0 itself and waits for the others. Each worker's slice of the frame is an
// equal share, in worker order, of the frame size the host sets here.

// Number of workers used by the next forks, 1 to 127 (a host's record offers the count as a
// signed byte). Not to be changed during a fork.
void SparkHostSetWorkerCount(int count);
int SparkHostWorkerCount();

// How long a waiting thread spins, in processor pause instructions, before it sleeps in the
// kernel until woken: workers between forks, and the forking thread waiting for the others.
// Forks come thousands of times per frame, back to back, so a short spin catches the next one
// without a wake-up; a long one burns a core that, on a loaded machine, a late worker needs.
inline constexpr int kSparkHostDefaultSpinRounds = 64;
void SparkHostSetWorkerSpin(int rounds);
int SparkHostWorkerSpin();
// Frame size whose pixels are sliced among the workers.
void SparkHostSetFrameSize(int width, int height);
