// Seams between the library and the operating system. One implementation per platform:
// platform/android/ (Android logger, system properties) and platform/host/ (stderr,
// environment variables). Nothing outside src/platform/ calls OS-specific APIs directly.
#pragma once

#include <cstddef>
#include <cstdint>

// Writes one finished log line at the given Android priority under the tag.
void tvx_platform_log(int priority, const char* tag, const char* message);

// Reads a system property into value (capacity bytes, always terminated). Returns the value's
// length, 0 when the property is absent. On a host, "a.b.c" is read from the environment
// variable A_B_C.
int tvx_platform_property(const char* name, char* value, size_t capacity);

// Reads up to capacity bytes of a file in one read (retrying on EINTR). Returns the byte count,
// or -1 when the file cannot be opened or read.
long tvx_platform_read_file(const char* path, char* buffer, size_t capacity);

// Number of online processors, or -1 when the system cannot say.
long tvx_platform_processors();
