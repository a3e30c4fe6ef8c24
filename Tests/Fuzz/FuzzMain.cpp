// Runs the targets under Wine: see kUsage. A second process of the same program does the work, so that whatever becomes
// of it, the first one knows the input that it came to.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <LogLibHost.h>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Tests/Fuzz/FuzzRun.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/GuardedHeap.h"
#include "Tests/Fuzz/Mutator.h"

namespace {

constexpr char kUsage[] =
    R"(usage: FuzzTests --replay FOLDER|FILE [OPTION...] [TARGET...]
       FuzzTests --for SECONDS|--inputs N --corpus FOLDER [OPTION...] [TARGET...]
       FuzzTests --list

  --replay FOLDER   every input of the corpus, and each cut off and changed in places, as far as time goes
  --replay FILE     this one input, for one target
  --for SECONDS     changes the corpus at random, for as long as that
  --inputs N        the same, for so many inputs of each target
  --corpus FOLDER   where NAME/* are the inputs of the target NAME
  --seed S          the same changes again (else they are other ones each day)
  --without NAME    leaves out that target
  --guard           every block of memory ends where a page does, and so does the input
  --finds FOLDER    where an input is written that a target fails with (else the current folder)

Exit codes: 0 all held; 1 a target failed, and how to repeat it is told; 2 the command line is wrong.
)";

constexpr std::size_t kUsualBytes = 4096;
constexpr std::size_t kMostBytes = std::size_t{64} * 1024;
constexpr std::size_t kMostKept = 4096;
constexpr std::size_t kMostTargets = 64;
constexpr std::size_t kBatch = 500;
constexpr std::uint64_t kSliceMicroseconds = 20'000;
constexpr std::uint64_t kMostReplayMicroseconds = 500'000;  // of one target's changed inputs
// Of one input: the time that it computes, and the time that it may take on a machine that has much else to do.
constexpr std::uint64_t kMostComputingMs = 20'000;
constexpr std::uint64_t kMostMs = 1'800'000;
constexpr DWORD kLookMs = 500;

struct WrongUsage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::optional<std::filesystem::path> replay;
  std::filesystem::path corpus;
  std::filesystem::path finds = ".";
  std::optional<std::uint64_t> seconds;
  std::optional<std::uint64_t> inputs;
  std::uint64_t seed = static_cast<std::uint64_t>(std::time(nullptr)) / (24 * 60 * 60);
  bool guards = false;
  bool list = false;
  std::string worker;  // the name of the memory that it tells its progress in
  std::vector<const FuzzTarget*> targets;
};

std::uint64_t Number(const std::string& option, std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size())
    throw WrongUsage(option + " takes a number; here is: " + std::string(text));
  return number;
}

const FuzzTarget& TargetOf(std::string_view name) {
  std::string all;
  for (const FuzzTarget* target : FuzzTarget::All()) {
    if (target->Name() == name) return *target;
    all.append(all.empty() ? "" : ", ").append(target->Name());
  }
  throw WrongUsage("there is no target " + std::string(name) + "; there are " + all);
}

Options Parse(int argc, char** argv) {
  Options options;
  std::vector<const FuzzTarget*> without;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const auto value = [&]() -> std::string {
      if (i + 1 == argc) throw WrongUsage(argument + " takes a value");
      return argv[++i];
    };
    if (argument == "--list")
      options.list = true;
    else if (argument == "--guard")
      options.guards = true;
    else if (argument == "--replay")
      options.replay = value();
    else if (argument == "--corpus")
      options.corpus = value();
    else if (argument == "--finds")
      options.finds = value();
    else if (argument == "--without")
      without.push_back(&TargetOf(value()));
    else if (argument == "--worker")
      options.worker = value();
    else if (argument == "--for")
      options.seconds = Number(argument, value());
    else if (argument == "--inputs")
      options.inputs = Number(argument, value());
    else if (argument == "--seed")
      options.seed = Number(argument, value());
    else if (argument.starts_with('-'))
      throw WrongUsage("there is no option " + argument);
    else
      options.targets.push_back(&TargetOf(argument));
  }
  if (options.list) return options;
  if ((options.replay ? 1 : 0) + (options.seconds ? 1 : 0) + (options.inputs ? 1 : 0) != 1)
    throw WrongUsage("give one of --replay, --for and --inputs");
  if (options.replay && !std::filesystem::exists(*options.replay))
    throw WrongUsage("there is no " + options.replay->string());
  if (options.replay && std::filesystem::is_regular_file(*options.replay) && options.targets.size() != 1)
    throw WrongUsage("--replay FILE takes the name of one target");
  if (!options.replay && !std::filesystem::is_directory(options.corpus))
    throw WrongUsage("--for and --inputs take --corpus FOLDER");
  if (options.targets.empty()) options.targets = FuzzTarget::All();
  std::erase_if(options.targets, [&](const FuzzTarget* target) {
    return std::find(without.begin(), without.end(), target) != without.end();
  });
  if (options.targets.empty()) throw WrongUsage("no target is left");
  return options;
}

// What the worker tells, in memory that outlives it.
struct Progress {
  std::atomic<std::uint64_t> runs;  // that have begun
  std::atomic<std::uint64_t> ended;
  std::atomic<std::uint32_t> target;  // the number of the latest one
  std::atomic<std::uint32_t> size;
  std::uint8_t input[kMostBytes];
  std::atomic<std::uint64_t> inputsOf[kMostTargets];
  std::atomic<std::uint64_t> microsecondsOf[kMostTargets];
  std::atomic<std::uint64_t> kindsOf[kMostTargets];
};

class SharedProgress {
 public:
  // Makes it, or opens what has been made.
  explicit SharedProgress(const std::string& name)
      : m_mapping(
            ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Progress), name.c_str())),
        m_progress(static_cast<Progress*>(::MapViewOfFile(m_mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0))) {
    if (m_progress == nullptr) throw std::bad_alloc();
  }
  ~SharedProgress() { ::UnmapViewOfFile(m_progress); }
  SharedProgress(const SharedProgress&) = delete;
  SharedProgress& operator=(const SharedProgress&) = delete;

  Progress* operator->() const { return m_progress; }

 private:
  UniqueKernelHandle m_mapping;
  Progress* m_progress;
};

std::uint64_t Microseconds() {
  LARGE_INTEGER now{}, frequency{};
  ::QueryPerformanceCounter(&now);
  ::QueryPerformanceFrequency(&frequency);
  return static_cast<std::uint64_t>(now.QuadPart * 1'000'000 / frequency.QuadPart);
}

FuzzBytes Contents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) throw WrongUsage("cannot read " + file.string());
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// ---- the worker ----

// One target's part in the work.
struct Share {
  const FuzzTarget* target;
  std::vector<FuzzBytes> corpus;
  std::vector<bool> kinds = std::vector<bool>(kFuzzKinds);
};

class Worker {
 public:
  explicit Worker(const Options& options) : m_options(options), m_progress(options.worker), m_mutator(options.seed) {
    for (const FuzzTarget* target : options.targets) {
      m_shares.push_back({target, {}});
      const std::filesystem::path folder = options.replay.value_or(options.corpus) / target->Name();
      if (!std::filesystem::is_directory(folder)) continue;
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
      std::sort(files.begin(), files.end());
      for (const std::filesystem::path& file : files) m_shares.back().corpus.push_back(Contents(file));
    }
    GuardedHeap::Install(options.guards);
    CurrentFuzzRun().isSlow = options.guards;
  }

  void Work() {
    if (!m_options.replay)
      Mutate();
    else if (std::filesystem::is_regular_file(*m_options.replay))
      Run(m_shares.front(), Contents(*m_options.replay));
    else
      for (Share& share : m_shares) Replay(share);
  }

 private:
  void Run(Share& share, const FuzzBytes& bytes) {
    const auto number = static_cast<std::size_t>(
        std::find(FuzzTarget::All().begin(), FuzzTarget::All().end(), share.target) - FuzzTarget::All().begin());
    const std::size_t size = std::min(bytes.size(), kMostBytes);
    std::copy_n(bytes.begin(), size, m_progress->input);
    m_progress->target = static_cast<std::uint32_t>(number);
    m_progress->size = static_cast<std::uint32_t>(size);
    ++m_progress->runs;
    FuzzInput input(m_progress->input, size);
    if (m_options.guards) input = GuardedHeap::CopyToPageEnd(input);

    FuzzRun& run = CurrentFuzzRun();
    run.kinds = &share.kinds;
    run.isNewKind = false;
    RunOnce(*share.target, input);
    if (m_options.guards) FailOnLeak(*share.target, input);
    if (run.isNewKind && share.corpus.size() < kMostKept) share.corpus.push_back(bytes);
    m_progress->kindsOf[number] += run.isNewKind ? 1 : 0;
    ++m_progress->inputsOf[number];
    ++m_progress->ended;
  }

  static void RunOnce(const FuzzTarget& target, FuzzInput input) {
    GuardedHeap::BeginRun();
    try {
      target(input);
    } catch (const std::exception& exception) {
      FuzzFail(std::string("an exception leaves: ") + exception.what());
    } catch (...) {
      FuzzFail("an exception leaves");
    }
    GuardedHeap::EndRun();
  }

  // What a first run keeps for later ones is none; what each run keeps is.
  void FailOnLeak(const FuzzTarget& target, FuzzInput input) {
    if (const std::size_t blocks = GuardedHeap::Blocks(); blocks <= m_blocks) {
      m_blocks = blocks;
      return;
    }
    for (int again = 0; again < 2; ++again) {
      const std::size_t before = GuardedHeap::Blocks();
      RunOnce(target, input);
      m_blocks = GuardedHeap::Blocks();
      if (m_blocks <= before) return;
    }
    FuzzFail("memory is not freed");
  }

  // Each input of the corpus, and then each cut off and changed in places, as long as there is time.
  void Replay(Share& share) {
    const std::vector<FuzzBytes> corpus = share.corpus;
    const std::uint64_t start = Microseconds();
    for (const FuzzBytes& bytes : corpus) Run(share, bytes);
    for (const FuzzBytes& bytes : corpus) ReplayChanged(share, bytes, start + kMostReplayMicroseconds);
    End(share, start);
  }

  void ReplayChanged(Share& share, const FuzzBytes& bytes, std::uint64_t until) {
    constexpr std::size_t kPlaces = 48;
    const std::size_t step = std::max<std::size_t>(1, bytes.size() / kPlaces);
    for (std::size_t place = 0; place < bytes.size() && Microseconds() < until; place += step) {
      FuzzBytes cut = bytes;
      cut.resize(place);
      Run(share, cut);
      FuzzBytes changed = bytes;
      for (const int change : {0xff, 0x80, 0x01}) {
        changed[place] = static_cast<std::uint8_t>(bytes[place] ^ change);
        Run(share, changed);
      }
    }
  }

  void Mutate() {
    const std::uint64_t begin = Microseconds();
    std::vector<std::uint64_t> inputs(m_shares.size());
    for (Share& share : m_shares)
      if (share.corpus.empty()) share.corpus.emplace_back();
    for (bool goesOn = true; goesOn;) {
      goesOn = false;
      for (std::size_t i = 0; i < m_shares.size(); ++i) {
        Share& share = m_shares[i];
        const std::uint64_t start = Microseconds();
        // A slow target has no more than its share of the time.
        const auto isOver = [&](std::size_t n) {
          return m_options.inputs ? n == kBatch || inputs[i] == *m_options.inputs
                                  : Microseconds() - start > kSliceMicroseconds;
        };
        for (std::size_t n = 0; !isOver(n); ++n) {
          const std::vector<FuzzBytes>& corpus = share.corpus;
          FuzzBytes bytes = corpus[m_mutator.Below(corpus.size())];
          m_mutator.Change(bytes, corpus, share.target->Tokens(),
                           !m_options.guards && m_mutator.Below(64) == 0 ? kMostBytes : kUsualBytes);
          Run(share, bytes);
          ++inputs[i];
        }
        End(share, start);
        goesOn |=
            m_options.inputs ? inputs[i] < *m_options.inputs : Microseconds() - begin < *m_options.seconds * 1'000'000;
      }
    }
  }

  void End(const Share& share, std::uint64_t start) {
    const auto& all = FuzzTarget::All();
    const auto number = static_cast<std::size_t>(std::find(all.begin(), all.end(), share.target) - all.begin());
    m_progress->microsecondsOf[number] += Microseconds() - start;
  }

  const Options& m_options;
  SharedProgress m_progress;
  Mutator m_mutator;
  std::vector<Share> m_shares;
  std::size_t m_blocks = 0;
};

// ---- the first process ----

void PrintCounts(const SharedProgress& progress) {
  std::printf("%-24s %12s %12s %8s\n", "target", "inputs", "a second", "kinds");
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < FuzzTarget::All().size(); ++i) {
    const std::uint64_t inputs = progress->inputsOf[i];
    if (inputs == 0) continue;
    sum += inputs;
    const std::uint64_t microseconds = progress->microsecondsOf[i];
    const std::string name(FuzzTarget::All()[i]->Name());
    std::printf("%-24s %12llu %12llu %8llu\n", name.c_str(), inputs,
                microseconds == 0 ? 0 : inputs * 1'000'000 / microseconds, progress->kindsOf[i].load());
  }
  std::printf("%-24s %12llu\n", "all", sum);
  std::fflush(stdout);
}

int TellFind(const Options& options, const SharedProgress& progress, const std::string& what) {
  const std::string target(FuzzTarget::All()[progress->target]->Name());
  std::uint64_t hash = 0xcbf29ce484222325;
  const FuzzInput input(progress->input, progress->size);
  for (const std::uint8_t byte : input) hash = (hash ^ byte) * 0x100000001b3;
  char name[64];
  std::snprintf(name, sizeof name, "%s-%016llx.bin", target.c_str(), hash);
  std::filesystem::create_directories(options.finds);
  const std::string file = (options.finds / name).generic_string();
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
  std::fprintf(stderr,
               "fuzz: %s: %s, with the %zu bytes of %s\n"
               "fuzz: to repeat it: FuzzTests --replay %s%s %s\n",
               target.c_str(), what.c_str(), input.size(), file.c_str(), file.c_str(), options.guards ? " --guard" : "",
               target.c_str());
  return 1;
}

PROCESS_INFORMATION StartWorker(const std::string& more) {
  std::wstring line = ::GetCommandLineW() + std::wstring(more.begin(), more.end());
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION worker{};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &worker))
    throw std::runtime_error("cannot start itself: error " + std::to_string(::GetLastError()));
  return worker;
}

// Of a thread: Wine does not know how long other processes have computed.
std::uint64_t ComputingMs(HANDLE thread) {
  FILETIME start{}, end{}, kernel{}, user{};
  ::GetThreadTimes(thread, &start, &end, &kernel, &user);
  const auto ms = [](const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 10'000;
  };
  return ms(kernel) + ms(user);
}

// What became of a worker: nothing where all held, or what its latest input failed with; a code when it has told itself
// what is wrong.
struct Outcome {
  std::string failure;
  int code = 0;
};

Outcome Watch(const SharedProgress& progress, const PROCESS_INFORMATION& worker) {
  const UniqueKernelHandle process(worker.hProcess), thread(worker.hThread);
  std::uint64_t latest = 0;
  std::uint64_t since = ::GetTickCount64(), computedBefore = 0;
  while (::WaitForSingleObject(process.get(), kLookMs) == WAIT_TIMEOUT) {
    const std::uint64_t computed = ComputingMs(thread.get());
    if (const std::uint64_t runs = progress->runs; runs != latest || progress->ended == runs) {
      latest = runs;
      since = ::GetTickCount64();
      computedBefore = computed;
    } else if (computed - computedBefore > kMostComputingMs || ::GetTickCount64() - since > kMostMs) {
      ::TerminateProcess(process.get(), 1);
      ::WaitForSingleObject(process.get(), INFINITE);
      return {"does not end (after " + std::to_string((::GetTickCount64() - since) / 1000) + " s, " +
              std::to_string((computed - computedBefore) / 1000) + " s of computing)"};
    }
  }
  DWORD code = 0;
  ::GetExitCodeProcess(process.get(), &code);
  if (code == 0) return {};
  if (progress->runs == progress->ended) return {{}, static_cast<int>(code)};
  char text[64];
  std::snprintf(text, sizeof text, "fails (exit code 0x%lx)", code);
  return {text};
}

// Of a given time what is left after a find goes to the other targets.
int Supervise(const Options& options) {
  const std::string name = "FuzzTests." + std::to_string(::GetCurrentProcessId());
  const SharedProgress progress(name);
  const std::uint64_t begin = ::GetTickCount64();
  std::string without;
  std::size_t targets = options.targets.size();
  int failed = 0;
  for (;;) {
    const Outcome outcome = Watch(progress, StartWorker(" --worker " + name + without));
    if (outcome.code != 0) return outcome.code;
    if (outcome.failure.empty()) break;
    failed = TellFind(options, progress, outcome.failure);
    const std::uint64_t passed = (::GetTickCount64() - begin) / 1000;
    if (--targets == 0 || passed >= options.seconds.value_or(0)) break;
    without.append(" --without ").append(FuzzTarget::All()[progress->target]->Name());
    without += " --for " + std::to_string(*options.seconds - passed);
    progress->ended = progress->runs.load();
  }
  PrintCounts(progress);
  return failed;
}

}  // namespace

int main(int argc, char** argv) {
  // Nobody is there to answer a message box, or to look at a debugger.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  LogUtils::setConsoleLogging(false);
  ::_set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
  try {
    const Options options = Parse(argc, argv);
    if (options.list) {
      for (const FuzzTarget* target : FuzzTarget::All()) std::printf("%s\n", std::string(target->Name()).c_str());
      return 0;
    }
    if (options.worker.empty()) return Supervise(options);
    Worker(options).Work();
    std::fflush(nullptr);
    // Whatever is destroyed at the end of a process is no part of a run.
    ::TerminateProcess(::GetCurrentProcess(), 0);
    return 0;
  } catch (const WrongUsage& wrong) {
    std::fprintf(stderr, "fuzz: error: %s\n\n%s", wrong.what(), kUsage);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "fuzz: error: %s\n", exception.what());
    return 3;
  }
  return 2;
}
