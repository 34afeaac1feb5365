#pragma once
// The stand-in host's workers behind sparkMpFork: persistent threads woken per fork. The calling
// thread runs worker 0 itself and waits for the others. Each worker's slice of the frame is an
// equal share, in worker order, of the frame size the host sets here.

// Number of workers used by the next forks, 1 to 64. Not to be changed during a fork.
void SparkHostSetWorkerCount(int count);
int SparkHostWorkerCount();
// Frame size whose pixels are sliced among the workers.
void SparkHostSetFrameSize(int width, int height);
