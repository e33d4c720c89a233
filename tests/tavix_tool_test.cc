// The tavix command-line tool end to end: exit codes and messages for bad input, the list,
// and `tavix run` on small odd-sized images whose expected output is known pixel by pixel.
// Skipped when the tool is not built (cross builds leave the apps out).
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tavix_rows.h"

namespace fs = std::filesystem;

namespace {

struct Outcome {
  int exitCode = -1;
  std::string out, err;
};

std::string readFile(const fs::path& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

// Raw 8-bit image as the tool's PGM/PPM reader and writer see it.
struct Pixels {
  uint32_t width = 0, height = 0, channels = 1;
  std::vector<uint8_t> data;
  uint8_t at(uint32_t x, uint32_t y, uint32_t c = 0) const { return data[(size_t(y) * width + x) * channels + c]; }
  bool operator==(const Pixels& o) const = default;
};

void PrintTo(const Pixels& p, std::ostream* os) {
  *os << p.width << "x" << p.height << "x" << p.channels << " image";
}

Pixels pattern(uint32_t width, uint32_t height, uint32_t channels) {
  Pixels p{width, height, channels, std::vector<uint8_t>(size_t(width) * height * channels)};
  for (size_t i = 0; i < p.data.size(); ++i) p.data[i] = static_cast<uint8_t>(i * 37 + 11);
  return p;
}

void writePnm(const fs::path& path, const Pixels& p) {
  std::ofstream f(path, std::ios::binary);
  f << (p.channels == 1 ? "P5" : "P6") << "\n" << p.width << " " << p.height << "\n255\n";
  f.write(reinterpret_cast<const char*>(p.data.data()), static_cast<std::streamsize>(p.data.size()));
}

Pixels readPnm(const fs::path& path) {
  const std::string bytes = readFile(path);
  Pixels p;
  char kind[3] = {};
  int maxValue = 0, headerLength = 0;
  if (std::sscanf(bytes.c_str(), "%2s %u %u %d%n", kind, &p.width, &p.height, &maxValue, &headerLength) != 4) return {};
  p.channels = std::string(kind) == "P5" ? 1 : 3;
  const size_t size = size_t(p.width) * p.height * p.channels;
  const size_t start = static_cast<size_t>(headerLength) + 1;
  if (bytes.size() != start + size) return {};
  p.data.assign(bytes.begin() + static_cast<long>(start), bytes.end());
  return p;
}

class TavixTool : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* fromEnv = std::getenv("TAVIX_TOOL");
    std::error_code error;
    tool_ = fromEnv ? fs::path(fromEnv) : fs::read_symlink("/proc/self/exe", error).parent_path() / "../apps/tavix";
    if (!fs::exists(tool_, error)) GTEST_SKIP() << "the tavix tool is not built (" << tool_ << ")";
    char dir[] = "/tmp/tavix_tool_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  Outcome run(const std::vector<std::string>& args) {
    const fs::path outFile = dir_ / "stdout.txt", errFile = dir_ / "stderr.txt";
    const pid_t pid = fork();
    if (pid == 0) {
      const int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(out, 1);
      dup2(err, 2);
      std::vector<char*> argv{const_cast<char*>(tool_.c_str())};
      for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execv(tool_.c_str(), argv.data());
      _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(outFile), readFile(errFile)};
  }

  // Runs `tavix run OP in out args...` and returns the output image (empty on failure).
  Pixels runOp(const std::string& op, const Pixels& input, const std::vector<std::string>& args,
               const std::string& tier = "") {
    const fs::path in = dir_ / (input.channels == 1 ? "in.pgm" : "in.ppm"), out = dir_ / "out.pnm";
    writePnm(in, input);
    fs::remove(out);
    std::vector<std::string> all{"run"};
    if (!tier.empty()) all.insert(all.end(), {"--tier", tier});
    all.insert(all.end(), {op, in.string(), out.string()});
    all.insert(all.end(), args.begin(), args.end());
    const Outcome o = run(all);
    EXPECT_EQ(o.exitCode, 0) << op << ": " << o.err;
    return o.exitCode == 0 ? readPnm(out) : Pixels{};
  }

  fs::path tool_, dir_;
};

TEST_F(TavixTool, BadCommandLinesExitWithTwoAndWriteNothing) {
  const std::string in = (dir_ / "in.pgm").string(), out = (dir_ / "out.pgm").string();
  writePnm(in, pattern(5, 3, 1));
  const std::vector<std::vector<std::string>> bad = {
      {},
      {"frobnicate"},
      {"list", "extra"},
      {"run", "tvxFlipu8", in},
      {"run", "tvxNoSuchOperation", in, out},
      {"run", "tvxFlipu8", in, out},
      {"run", "tvxFlipu8", in, out, "sideways"},
      {"run", "tvxFlipu8", in, out, "h", "v"},
      {"run", "tvxRotateImageu8", in, out, "45"},
      {"run", "tvxAbsDiffVu8", in, out, "256"},
      {"run", "tvxAbsDiffVu8", in, out, "12x"},
      {"run", "tvxConvertDepthu8s16", in, out, "9", "0"},
      {"run", "tvxFlipu8", in, (dir_ / "out.gif").string(), "h"},
      {"run", "--tier", "gpu", "tvxFlipu8", in, out, "h"},
      {"bench", "noOperationHasThisName"},
  };
  for (const auto& args : bad) {
    std::string line;
    for (const auto& a : args) line += a + " ";
    const Outcome o = run(args);
    EXPECT_EQ(o.exitCode, 2) << line;
    EXPECT_FALSE(o.err.empty()) << line << ": no message";
    EXPECT_FALSE(fs::exists(out)) << line;
  }
  EXPECT_NE(run({}).err.find("usage"), std::string::npos);
  EXPECT_NE(run({"run", "tvxNoSuchOperation", in, out}).err.find("tvxTransposeu8"), std::string::npos)
      << "an unknown operation lists the supported ones";

  const Outcome missing = run({"run", "tvxFlipu8", (dir_ / "absent.png").string(), out, "h"});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(TavixTool, ListGivesEveryOperationWithItsRow) {
  const Outcome o = run({"list"});
  ASSERT_EQ(o.exitCode, 0) << o.err;
  std::istringstream lines(o.out);
  std::string line;
  bool flip = false, transpose = false;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string row, name, tiers;
    fields >> row >> name >> tiers;
    if (name == "tvxFlipu8") flip = row == std::to_string(TVX_ROW_tvxFlipu8) && tiers == "CPU";
    if (name == "tvxTransposeu8") transpose = row == std::to_string(TVX_ROW_tvxTransposeu8) && tiers == "CPU";
  }
  EXPECT_TRUE(flip) << o.out;
  EXPECT_TRUE(transpose) << o.out;
}

TEST_F(TavixTool, GeometricOperationsMovePixelsToTheirPlaces) {
  const Pixels in = pattern(37, 5, 1);  // odd sizes: no whole vector in a row
  const Pixels flipped = runOp("tvxFlipu8", in, {"h"});
  ASSERT_EQ(flipped.width, in.width);
  ASSERT_EQ(flipped.height, in.height);
  for (uint32_t y = 0; y < in.height; ++y)
    for (uint32_t x = 0; x < in.width; ++x) ASSERT_EQ(flipped.at(x, y), in.at(in.width - 1 - x, y)) << x << "," << y;
  EXPECT_EQ(runOp("tvxFlipu8", flipped, {"h"}), in) << "flipping twice restores the image";
  EXPECT_EQ(runOp("tvxFlipu8", runOp("tvxFlipu8", in, {"both"}), {"v"}), flipped);

  const Pixels transposed = runOp("tvxTransposeu8", in, {});
  ASSERT_EQ(transposed.width, in.height);
  ASSERT_EQ(transposed.height, in.width);
  for (uint32_t y = 0; y < in.height; ++y)
    for (uint32_t x = 0; x < in.width; ++x) ASSERT_EQ(transposed.at(y, x), in.at(x, y)) << x << "," << y;

  const Pixels rotated = runOp("tvxRotateImageu8", in, {"90"});
  ASSERT_EQ(rotated.width, in.height);
  ASSERT_EQ(rotated.height, in.width);
  for (uint32_t y = 0; y < in.height; ++y)
    for (uint32_t x = 0; x < in.width; ++x) ASSERT_EQ(rotated.at(in.height - 1 - y, x), in.at(x, y)) << x << "," << y;
  EXPECT_EQ(runOp("tvxRotateImageu8", runOp("tvxRotateImageu8", in, {"180"}), {"180"}), in);
  EXPECT_EQ(runOp("tvxRotateImageu8", rotated, {"270"}), in);
}

TEST_F(TavixTool, RgbOperationsMoveWholePixels) {
  const Pixels in = pattern(9, 4, 3);
  const Pixels flipped = runOp("tvxFlipRGB888u8", in, {"h"});
  ASSERT_EQ(flipped.channels, 3u);
  for (uint32_t y = 0; y < in.height; ++y)
    for (uint32_t x = 0; x < in.width; ++x)
      for (uint32_t c = 0; c < 3; ++c) ASSERT_EQ(flipped.at(x, y, c), in.at(in.width - 1 - x, y, c));
  const Pixels transposed = runOp("tvxTransposeRGB888u8", in, {});
  ASSERT_EQ(transposed.width, in.height);
  for (uint32_t y = 0; y < in.height; ++y)
    for (uint32_t x = 0; x < in.width; ++x)
      for (uint32_t c = 0; c < 3; ++c) ASSERT_EQ(transposed.at(y, x, c), in.at(x, y, c));
}

TEST_F(TavixTool, PixelOperationsGiveTheirFormula) {
  const Pixels in = pattern(33, 3, 1);
  const Pixels negative = runOp("tvxBitwiseNotu8", in, {});
  const Pixels absDiff = runOp("tvxAbsDiffVu8", in, {"100"});
  const Pixels doubled = runOp("tvxConvertDepthu8s16", in, {"1", "0"});
  const Pixels halved = runOp("tvxConvertDepthu8s16", in, {"0", "1"});
  ASSERT_EQ(negative.data.size(), in.data.size());
  ASSERT_EQ(absDiff.data.size(), in.data.size());
  ASSERT_EQ(doubled.data.size(), in.data.size());
  ASSERT_EQ(halved.data.size(), in.data.size());
  for (size_t i = 0; i < in.data.size(); ++i) {
    const int v = in.data[i];
    ASSERT_EQ(negative.data[i], 255 - v) << i;
    ASSERT_EQ(absDiff.data[i], std::abs(v - 100)) << i;
    ASSERT_EQ(doubled.data[i], std::min(2 * v, 255)) << i;
    ASSERT_EQ(halved.data[i], v >> 1) << i;
  }
  EXPECT_EQ(runOp("tvxTableLookupu8", in, {}), negative);
  EXPECT_EQ(runOp("tvxAddWeightedu8", in, {"0.5", "0.5"}), in) << "half of the image plus half of it";
  EXPECT_EQ(runOp("tvxTableLookupu8", in, {"1"}), in) << "gamma 1 is the identity";
}

TEST_F(TavixTool, RgbFileGivesItsLumaToSingleChannelOperations) {
  Pixels grey = pattern(6, 4, 1), rgb{6, 4, 3, {}};
  for (uint8_t v : grey.data) rgb.data.insert(rgb.data.end(), {v, v, v});
  const Pixels negative = runOp("tvxBitwiseNotu8", rgb, {});
  ASSERT_EQ(negative.channels, 1u);
  ASSERT_EQ(negative.data.size(), grey.data.size());
  for (size_t i = 0; i < grey.data.size(); ++i) EXPECT_EQ(negative.data[i], 255 - grey.data[i]) << i;
}

TEST_F(TavixTool, PngRoundTripAndBothTiersAgree) {
  const Pixels in = pattern(45, 7, 1);
  const fs::path source = dir_ / "source.pgm", png = dir_ / "negative.png", back = dir_ / "back.pgm";
  writePnm(source, in);
  ASSERT_EQ(run({"run", "tvxBitwiseNotu8", source.string(), png.string()}).exitCode, 0);
  ASSERT_EQ(run({"run", "tvxBitwiseNotu8", png.string(), back.string()}).exitCode, 0);
  EXPECT_EQ(readPnm(back), in);

  for (const std::vector<std::string>& op :
       std::vector<std::vector<std::string>>{{"tvxAddWeightedu8", "0.7", "0.55"}, {"tvxFlipu8", "both"},
                                             {"tvxTransposeu8"}, {"tvxAbsDiffVu8", "77"}}) {
    const std::vector<std::string> args(op.begin() + 1, op.end());
    EXPECT_EQ(runOp(op[0], in, args, "cpu"), runOp(op[0], in, args, "lanes")) << op[0];
  }
}

}  // namespace
