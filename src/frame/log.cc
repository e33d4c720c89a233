// The library's single path to the platform logger, with the entry-point trace and assertion
// lines and the process-ending assertion of reference variants.
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "frame/frame.h"
#include "platform/platform.h"

namespace {
std::atomic<TvxLogSink> g_sink{nullptr};
}

void tvx_set_log_sink(TvxLogSink sink) { g_sink.store(sink); }

int tvx_vlog(int priority, const char* tag, const char* format, va_list args) {
  char line[1024];
  const int length = vsnprintf(line, sizeof line, format, args);
  if (TvxLogSink sink = g_sink.load()) {
    sink(priority, tag, line);
  } else {
    tvx_platform_log(priority, tag, line);
  }
  return length;
}

int tvx_log(int priority, const char* tag, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = tvx_vlog(priority, tag, format, args);
  va_end(args);
  return length;
}

void tvx_trace(const char* name, uint32_t tier) {
  tvx_log(TVX_LOG_ERROR, TVX_RUNTIME_TAG, "%s_%s", name,
          tier < TVX_NUM_IMPL ? tvxImplChar[tier] : "?");
}

void tvx_assert_failed(const char* name, const char* condition) {
  tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Assertion failed @%s: %s\n", name, condition);
}

void tvx_size_error(const char* name) { tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Error at %s\n", name); }
void tvx_out_of_memory(const char* name) { tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Out of memory at %s\n", name); }

void tvx_fatal(const char* path, int line, const char* condition) {
  tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s@%d: %s Assertion failed\n", path, line, condition);
  exit(1);
}
