// tavix: lists the library's operations, times their reference and SIMD tiers, and runs a
// few image-to-image operations on image files.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "tool.h"

namespace {

void printUsage(FILE* out) {
  std::fprintf(out,
               "usage:\n"
               "  tavix list                          implemented operations, their rows and tiers\n"
               "  tavix bench [pattern]               reference vs SIMD time of every operation whose\n"
               "                                      name contains pattern, on a 1920x1080 image; with\n"
               "                                      TAVIX_DSP_SOCKET naming a host DSP, also the DSP tier\n"
               "  tavix run [--tier cpu|lanes] OP in out [args]\n"
               "                                      runs OP on an image file (png, jpg, bmp, tga, pgm,\n"
               "                                      ppm in; png, jpg, bmp, tga, pgm, ppm out)\n"
               "\noperations of `tavix run`:\n%s",
               runUsage().c_str());
}

}  // namespace

void quietSink(int, const char*, const char*) {}

int main(int argc, char** argv) {
  if (argc < 2) {
    printUsage(stderr);
    return kExitUsage;
  }
  const std::string command = argv[1];
  if (command == "help" || command == "-h" || command == "--help") {
    printUsage(stdout);
    return kExitOk;
  }

  tvx_set_log_sink(quietSink);
  tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  tvx_set_log_sink(nullptr);

  if (command == "list" && argc == 2) return listCommand();
  if (command == "bench" && argc <= 3) return benchCommand(argc == 3 ? argv[2] : "");
  if (command == "run") return runCommand(std::vector<std::string>(argv + 2, argv + argc));
  std::fprintf(stderr, "tavix: unknown command or wrong arguments: %s\n\n", command.c_str());
  printUsage(stderr);
  return kExitUsage;
}
