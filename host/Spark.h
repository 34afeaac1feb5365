#pragma once
// Our declaration of the Spark host interface: the host's records and the operations a host
// offers its plug-ins, all with C linkage. The plug-in leaves the operations undefined for the
// loading process to resolve; the stand-in host defines them.

extern "C" {

// Runs `function(argument)` on every host worker at once and returns when all have finished.
int sparkMpFork(void (*function)(void*), int argumentCount, void* argument);
// Tells the calling worker its slice of the frame: first pixel and pixel count, in raster order.
// Slices are equal apart from rounding and lie in worker order.
int sparkMpInfo(unsigned long* offset, unsigned long* size);

} // extern "C"
