#pragma once
// Marks the few names the host resolves in the shared object; everything else stays hidden.
#define QUELMOR_EXPORT extern "C" __attribute__((visibility("default")))
