// Android back end of the platform seams: the Android logger and system properties.
#include <android/log.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/system_properties.h>
#include <unistd.h>

#include "platform/platform.h"

void tvx_platform_log(int priority, const char* tag, const char* message) {
  __android_log_write(priority, tag, message);
}

int tvx_platform_property(const char* name, char* value, size_t capacity) {
  if (capacity == 0) return 0;
  // The reader always needs PROP_VALUE_MAX bytes; copy what fits into the caller's buffer.
  char text[PROP_VALUE_MAX];
  const int length = __system_property_get(name, text);
  const size_t kept = length <= 0 ? 0 : strnlen(text, capacity - 1);
  memcpy(value, text, kept);
  value[kept] = '\0';
  return static_cast<int>(kept);
}

long tvx_platform_read_file(const char* path, char* buffer, size_t capacity) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  ssize_t count;
  do {
    count = read(fd, buffer, capacity);
  } while (count < 0 && errno == EINTR);
  close(fd);
  return count < 0 ? -1 : static_cast<long>(count);
}

long tvx_platform_processors() { return sysconf(_SC_NPROCESSORS_ONLN); }
