// DSP session: the channel to each DSP domain, the DSP-side library brought up in a DSP mode
// with its major version checked, the session state the rest of the library queries, the
// recovery of a channel after the DSP restarted, and the optional platform library.
#pragma once

#include <cstdint>

#include "remote/tavixdsp.h"

extern "C" {

// Remote handle of each domain's channel (0 when closed) and how many users opened it. The
// remote layer reads the handles at call time.
extern uint64_t adsp_domain_handle;
extern uint64_t cdsp_domain_handle;
extern uint64_t mdsp_domain_handle;
extern int32_t adspDomainHandle_count;
extern int32_t cdspDomainHandle_count;
extern int32_t mdspDomainHandle_count;

// The remote layer's copy of the constraint-check flag (1 until tvxSetHWFlag changes it).
extern uint32_t R6_constraint_checks_enable;
void tvxUpdateR6ConstraintCheckFlag(uint32_t value);

// Session lifecycle. dspMode is 0, 1 or 2; versionString is the library's version, whose
// first two characters must match the DSP library's. 0 on success, -1 otherwise.
int32_t MOLAR6_init(int32_t dspMode, const char* versionString);
int32_t MOLAR6_deinit(void);
int32_t MOLAR6_is_ready(void);
int32_t MOLAR6_get_current_mode(void);  // -1 when no session is ready
int32_t tvxR6Initialize(int32_t dspMode, const char* versionString);
int32_t tvxR6SessionInit(int32_t dspMode, const char* versionString);
int32_t tvxR6SessionInit_internal(uint64_t handle, const tavixdsp_attribute* attributes, int32_t numAttributes,
                                  const char* versionString);
int32_t tvxR6SessionInit_internal_adsp(const tavixdsp_attribute* attributes, int32_t numAttributes,
                                       const char* versionString);
int32_t tvxR6SessionInit_internal_cdsp(const tavixdsp_attribute* attributes, int32_t numAttributes,
                                       const char* versionString);
int32_t tvxR6SessionInit_internal_mdsp(const tavixdsp_attribute* attributes, int32_t numAttributes,
                                       const char* versionString);
int32_t tvxR6SessionDeInit(void);

// Channel of one domain, counted: the first open opens it, the close that brings the count
// back to 0 closes it; every close also deinitialises the DSP-side library. Open returns the
// stub's status (0 when the channel is open), close the stub's close status (0 when nothing
// had to be closed). The forms without a suffix act on the default domain (defaultDSP).
int32_t domain_channel_open_adsp(void);
int32_t domain_channel_open_cdsp(void);
int32_t domain_channel_open_mdsp(void);
int32_t domain_channel_close_adsp(void);
int32_t domain_channel_close_cdsp(void);
int32_t domain_channel_close_mdsp(void);
int32_t domain_channel_open(void);
int32_t domain_channel_close(void);

// DSP part of the hardware probe (declared in frame/hw.h): 8 when a session is ready for the
// operation mode, else 0; installs the shared-memory allocator accordingly.
uint32_t tvxAvailableHWComponent(int32_t mode);
// Brings a session up in dspMode: 1 (and RDSP_initflag set) on success, else the failure.
int32_t tvxSelectRDSP6Mode(int32_t dspMode);
void tvxR6GetClk(void);
// Recovery after a DSP restart, for the channel the failing call used: 0 when the DSP
// answers, -1 otherwise.
int32_t adspSSRcleanUpSequence(uint32_t handleLow, uint32_t handleHigh);

// Optional platform library /data/local/libtvxopt.so.
int32_t tvxPlatformOptLoad(void);
int32_t tvxPlatformOptClose(void);
void* tvxPlatformOptGetFunc(const char* name);
int32_t load_stub_symbols(void);

// Clean-up of the remote side: closes the session, releases the shared-memory allocator if
// the remote one is installed and clears the four shared-memory hooks.
void tvxCleanUpHW(void);

}  // extern "C"

