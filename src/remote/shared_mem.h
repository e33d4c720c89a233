// Shared memory for the DSP: page-rounded blocks of DMA-shareable memory, mapped into the
// process and registered with the remote-call layer so the DSP reads them without copies, the
// table that remembers them, and the hooks through which tvxMemAlloc and tvxMemFree reach them.
#pragma once

#include <cstdint>

#include "remote/tavixdsp.h"
#include "tavix/tavix.h"  // tvxInitSharedMem, tvxDeInitSharedMem

extern "C" {

// Creates the block table (once; 0 when it exists, -1 when it cannot be created).
int32_t tvxInitSharedMem_Rdsp(void);
// Marks the table uninitialised. Blocks still recorded stay mapped and recorded, so
// tvxSharedMemFreeQ can still release them.
int32_t tvxDeInitSharedMem_Rdsp(void);

// A block of at least size bytes (rounded up to whole 4096-byte pages, page aligned), or null
// for size 0, an alignment above 4096, a full table or any allocation failure.
void* tvxSharedMemAllocQ(uint32_t size, uint32_t alignment);
// 0 when the block was in the table and is released, -1 otherwise (null included).
int32_t tvxSharedMemFreeQ(void* address);
// Unregisters, ends CPU access, unmaps and closes one block's descriptors; size is the
// requested size (the mapping spans it rounded up to whole pages). reserved has no meaning.
int32_t mem_free_ion(int32_t ionDevice, void* address, uint32_t reserved, uint32_t size, int32_t dmaFd);

}  // extern "C"

// Number of table records that hold a block.
uint32_t tvx_shared_mem_records_in_use();

// Test seam: where the allocator finds the remote-call layer's registration function (null
// from the lookup means registration is unavailable). Null restores the platform's lookup.
typedef tavixdsp_register_buf_fn (*TvxRegisterLookup)();
void tvx_set_register_lookup_for_test(TvxRegisterLookup lookup);
