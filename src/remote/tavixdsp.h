// The DSP stub library's session-level interface: open and close a domain's channel, bring the
// DSP-side library up and down, ask its version and clock, flush its view of a buffer, and
// register shared buffers with the remote-call layer. On a phone these come from the vendor's
// stub library and remote-call client; on a host from dsp/stub (the host DSP's client).
// The per-operation entries tavixdsp_<op>Q are declared in the generated tavix_stubs.h.
#pragma once

#include <cstdint>

extern "C" {

// One session attribute passed to the DSP-side library (identifier 3 selects the DSP mode).
struct tavixdsp_attribute {
  int32_t id;
  int32_t value;
};

// Remote statuses: 0 success, 104 the DSP restarted (the channel is stale), others failures.
enum : int32_t { TAVIXDSP_SUCCESS = 0, TAVIXDSP_RESTARTED = 104 };

int32_t tavixdsp_open(const char* uri, uint64_t* handle);
int32_t tavixdsp_close(uint64_t handle);
int32_t tavixdsp_initR6_with_attributes(uint32_t handleLow, uint32_t handleHigh,
                                        const tavixdsp_attribute* attributes, int32_t numAttributes);
int32_t tavixdsp_deinitR6(uint32_t handleLow, uint32_t handleHigh);
// Copies the DSP library's version string (terminated, at most versionLength bytes).
int32_t tavixdsp_tvxGetVersionQ(uint32_t handleLow, uint32_t handleHigh, char* version, int32_t versionLength);
// The DSP's clock in microseconds; a non-zero result means the DSP did not answer.
int32_t tavixdsp_tvxR6GetClk(uint32_t handleLow, uint32_t handleHigh, uint64_t* microseconds);

// Registers (fd >= 0) or unregisters (fd == -1) a mapped shared buffer with the remote-call
// layer, which then passes buffers inside it to the DSP by reference.
typedef void (*tavixdsp_register_buf_fn)(void* buffer, int32_t length, int32_t fd);

}  // extern "C"

inline uint32_t tavixdsp_low(uint64_t handle) { return static_cast<uint32_t>(handle); }
inline uint32_t tavixdsp_high(uint64_t handle) { return static_cast<uint32_t>(handle >> 32); }
inline uint64_t tavixdsp_handle(uint32_t low, uint32_t high) { return (uint64_t{high} << 32) | low; }
