#pragma once
// The module's entry point and its exported memory query.

#include <cstdint>

class ILocalSource;

extern "C" {

// Sizes the memory pool and registers the module's types in source. Call once, on
// one thread, before any other use of the module. A second call (source already
// knows "AXIS") changes nothing. Always true: a size that the pool refuses is logged
// as an error and the pool keeps that value, as its setters do.
//   pool_expand: MiB per pool expansion; max_pool: MiB at most; atom: units of 32 KiB;
//   pending_limit: queued block writes per storage before a writer is slowed down.
bool InitDataSetModule(ILocalSource* source, unsigned int pool_expand, unsigned int max_pool, unsigned int atom,
                       unsigned int pending_limit);

// Bytes obtained by the pool, its maximum in bytes, used/obtained and used/maximum.
void GetDatasetMemoryInfo(uint64_t* size, uint64_t* max_size, double* current, double* max);
}
