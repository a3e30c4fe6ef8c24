// SoakTests: every test is one job. Without options each is over in seconds.
#include <gmock/gmock.h>

#include <io.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "Tests/Soak/SoakRun.h"

namespace {

constexpr int kStdOut = 1;
constexpr int kStdErr = 2;

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleMock(&argc, argv);
  SoakOptions& options = Options();
  bool tellsIp = false;
  double silence = 60;
  CLI::App app("Runs the library as long as a service does, in little time.", "SoakTests");
  app.add_flag("--whole", options.whole, "Run each job as long as a soak takes");
  app.add_option("--for", options.seconds, "Run each job for so many seconds")->check(CLI::PositiveNumber);
  app.add_option("--silence", silence, "After so many seconds in which nothing is done, end the run")
      ->check(CLI::PositiveNumber);
  app.add_option("--report", options.report, "Add a line for each job to this file");
  app.add_flag("--ip", tellsIp, "Write commands for ip -batch, which changes the addresses, to standard output");
  CLI11_PARSE(app, argc, argv);
  options.silenceMs = static_cast<std::uint64_t>(silence * 1000);
  if (tellsIp) {
    // What the framework prints goes elsewhere.
    options.ipCommands = ::_fdopen(::_dup(kStdOut), "w");
    ::_dup2(kStdErr, kStdOut);
  }
  return RUN_ALL_TESTS();
}
