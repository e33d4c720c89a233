// Linux host back end of the platform seams: stderr stands in for the Android logger and
// environment variables stand in for system properties ("a.b.c" is read from A_B_C).
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "platform/platform.h"

// One call is one log line. The library's messages carry their own "\n" where they have
// one; a newline is added only when it is missing, so lines never run together.
void tvx_platform_log(int priority, const char* tag, const char* message) {
  const size_t length = strlen(message);
  const bool ends_line = length > 0 && message[length - 1] == '\n';
  fprintf(stderr, "%s: %s%s", tag, message, ends_line ? "" : "\n");
}

int tvx_platform_property(const char* name, char* value, size_t capacity) {
  if (capacity == 0) return 0;
  value[0] = '\0';
  char variable[128];
  size_t n = 0;
  for (; name[n] != '\0'; ++n) {
    if (n + 1 >= sizeof variable) return 0;  // no property has a name this long
    const unsigned char c = static_cast<unsigned char>(name[n]);
    variable[n] = c == '.' ? '_' : static_cast<char>(toupper(c));
  }
  variable[n] = '\0';
  const char* text = getenv(variable);
  if (text == nullptr) return 0;
  const size_t length = strnlen(text, capacity - 1);
  memcpy(value, text, length);
  value[length] = '\0';
  return static_cast<int>(length);
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
