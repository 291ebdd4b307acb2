// A call leaves the state of the process unchanged, and its result does not depend on locale, rounding mode, flush to
// zero and floating-point traps of the host.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <locale>
#include <map>
#include <string>

#include "api/breakdown_recipes.h"
#include "api/run_support.h"
#include "support/recipe_builder.h"

#ifdef __x86_64__
#include <xmmintrin.h>
#endif

extern "C" char** environ;

namespace vorlen_test {
namespace {

// The state of the process: the name of each item and its value as text.
using State = std::map<std::string, std::string>;

// The flags that a program sets. The C library adds another one.
constexpr int SIGNAL_FLAGS =
    SA_NOCLDSTOP | SA_NOCLDWAIT | SA_SIGINFO | SA_ONSTACK | SA_RESTART | static_cast<int>(SA_RESETHAND) | SA_NODEFER;

std::string bytes_of(const void* data, std::size_t size) { return {static_cast<const char*>(data), size}; }

State process_state() {
  State state;
  state["locale of C"] = std::setlocale(LC_ALL, nullptr);
  state["locale of C++"] = std::locale().name();
  const locale_t of_thread = uselocale(nullptr);
  state["locale of the thread"] = bytes_of(&of_thread, sizeof of_thread);
  state["rounding mode"] = std::to_string(std::fegetround());
  state["floating-point traps"] = std::to_string(fegetexcept());
  state["floating-point flags"] = std::to_string(std::fetestexcept(FE_ALL_EXCEPT));
#ifdef __x86_64__
  unsigned short x87 = 0;
  asm volatile("fnstcw %0" : "=m"(x87));
  state["x87 control word"] = std::to_string(x87);
  state["MXCSR"] = std::to_string(_mm_getcsr());
#endif
  state["working directory"] = std::filesystem::current_path().string();
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0) continue;
    state["handler of signal " + std::to_string(number)] =
        bytes_of(&action.sa_handler, sizeof action.sa_handler) + std::to_string(action.sa_flags & SIGNAL_FLAGS);
  }
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  for (int number = 1; number < NSIG; ++number) state["signal mask"] += sigismember(&mask, number) == 1 ? '1' : '0';
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the descriptor of this listing
    const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && target.string().find("/fd") == std::string::npos) {
      state["descriptor " + entry.path().filename().string()] = target.string();
    }
  }
  const mode_t umask_now = umask(0);
  umask(umask_now);
  state["umask"] = std::to_string(umask_now);
  for (char** variable = environ; *variable != nullptr; ++variable)
    state["environment"] += std::string(*variable) + '\n';
  for (int kind = 0; kind < RLIM_NLIMITS; ++kind) {
    rlimit limit{};
    getrlimit(static_cast<__rlimit_resource>(kind), &limit);
    state["limit " + std::to_string(kind)] = std::to_string(limit.rlim_cur) + " " + std::to_string(limit.rlim_max);
  }
  return state;
}

// The names of the items that differ.
std::string changes(const State& before, const State& after) {
  std::string names;
  for (const auto& [name, value] : before) {
    const auto found = after.find(name);
    if (found == after.end() || found->second != value) names += name + "; ";
  }
  for (const auto& [name, value] : after) {
    if (before.find(name) == before.end()) names += name + "; ";
  }
  return names;
}

struct Call {
  std::string name;
  std::string input;
  std::int32_t result;
  std::string text;
};

// Runs of each kind that end normally, one whose integration fails, one whose model cannot be built, one with an error
// in the recipe and one without a recipe.
class ProcessState : public testing::Test {
 protected:
  std::string write(const std::string& name, const RecipeBuilder& recipe) const {
    return recipe.write(folder.path(name + ".xml"));
  }
  RecipeBuilder stress_off() const {
    return RecipeBuilder({.stress_model = "relax"}).set("process_stages/stage_1/tau", "1");
  }

  const TempFolder folder;
  const std::vector<Call> calls = {
      {"stress off", write("off", stress_off()), 0, ""},
      {"V_dislocation", write("V", RecipeBuilder().set("process_stages/stage_1/tau", "1")), 0, ""},
      {"staged", write("staged", stress_off().set("integration/scheme", "staged")), 0, ""},
      {"staged with V-defects",
       write("staged_V", RecipeBuilder().set("process_stages/stage_1/tau", "200").set("integration/scheme", "staged")),
       0, ""},
      {"staged, not finite",
       write("staged_not_finite", stress_off().set("pre_stages/t0", "inf").set("integration/scheme", "staged")), 1,
       "State is not finite"},
      {"failing", write("failing", breakdown_recipe(ALUMINIUM_FIRST)), 1, "Step size has become too small"},
      {"rejected", write("rejected", stress_off().set("pre_stages/pre_stage_1/dislocations/disl_model", "inherited")),
       1, "Cannot inherit dislocation density for first pre-stage"},
      {"faulty", write("faulty", stress_off().set("process_stages/stage_1/tau", "x1,5")), 1,
       "Failed to get real number from value \"x1,5\" of attribute val in element "
       "NonstSurfChem:process_stages:stage_1:tau"},
      {"missing", folder.path("none.xml"), 1,
       "Error reading file " + folder.path("none.xml") + "\nFailed to open file"},
  };
};

// Includes the sticky flags of the floating-point unit.
TEST_F(ProcessState, IsUnchangedByACall) {
  for (const int flags : {0, FE_ALL_EXCEPT}) {
    for (const Call& call : calls) {
      const std::string output = folder.path("out.txt");
      char text[VORLEN_ERROR_BUFFER_SIZE] = "";
      std::feclearexcept(FE_ALL_EXCEPT);
      std::feraiseexcept(flags);
      const State before = process_state();
      const std::int32_t result = runSurfChem(call.input.c_str(), output.c_str(), text);
      const State after = process_state();
      std::feclearexcept(FE_ALL_EXCEPT);
      EXPECT_EQ(call.result, result) << call.name;
      EXPECT_EQ(call.text, text) << call.name;
      EXPECT_EQ("", changes(before, after)) << call.name;
    }
  }
}

// The comparison above notices each kind of change.
TEST_F(ProcessState, AChangeIsNoticed) {
  std::feclearexcept(FE_ALL_EXCEPT);
  const State before = process_state();
  const auto expect_seen = [&](const std::string& name, const std::function<void()>& change,
                               const std::function<void()>& undo) {
    change();
    const State after = process_state();
    undo();
    EXPECT_NE(std::string::npos, changes(before, after).find(name)) << name;
  };
  const locale_t other = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(nullptr, other);
  expect_seen(
      "locale of C", [] { std::setlocale(LC_NUMERIC, "C.UTF-8"); }, [] { std::setlocale(LC_NUMERIC, "C"); });
  expect_seen(
      "locale of C++", [] { std::locale::global(std::locale(std::locale::classic(), new std::numpunct<char>)); },
      [] { std::locale::global(std::locale::classic()); });
  expect_seen(
      "locale of the thread", [&] { uselocale(other); }, [] { uselocale(LC_GLOBAL_LOCALE); });
  freelocale(other);
  expect_seen(
      "rounding mode", [] { std::fesetround(FE_UPWARD); }, [] { std::fesetround(FE_TONEAREST); });
  expect_seen(
      "floating-point traps", [] { feenableexcept(FE_DIVBYZERO); }, [] { fedisableexcept(FE_DIVBYZERO); });
  expect_seen(
      "floating-point flags", [] { std::feraiseexcept(FE_ALL_EXCEPT); }, [] { std::feclearexcept(FE_ALL_EXCEPT); });
  const std::filesystem::path here = std::filesystem::current_path();
  expect_seen(
      "working directory", [] { std::filesystem::current_path("/"); }, [&] { std::filesystem::current_path(here); });
  struct sigaction handler {};
  sigaction(SIGPIPE, nullptr, &handler);
  expect_seen(
      "handler of signal", [] { std::signal(SIGPIPE, SIG_IGN); }, [&] { sigaction(SIGPIPE, &handler, nullptr); });
  sigset_t signal;
  sigemptyset(&signal);
  sigaddset(&signal, SIGUSR1);
  expect_seen(
      "signal mask", [&] { pthread_sigmask(SIG_BLOCK, &signal, nullptr); },
      [&] { pthread_sigmask(SIG_UNBLOCK, &signal, nullptr); });
  std::FILE* file = nullptr;
  expect_seen(
      "descriptor", [&] { file = std::fopen("/dev/null", "r"); }, [&] { std::fclose(file); });
  mode_t mask = 0;
  expect_seen(
      "umask", [&] { mask = umask(0123); }, [&] { umask(mask); });
  expect_seen(
      "environment", [] { setenv("VORLEN_TEST", "1", 1); }, [] { unsetenv("VORLEN_TEST"); });
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit fewer = {limit.rlim_cur - 1, limit.rlim_max};
  expect_seen(
      "limit", [&] { setrlimit(RLIMIT_NOFILE, &fewer); }, [&] { setrlimit(RLIMIT_NOFILE, &limit); });
  EXPECT_EQ("", changes(before, process_state()));
}

// Locales with a decimal comma, set in every possible way.
struct CommaPunctuation : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

struct Setting {
  std::string name;
  std::function<void()> set;
  std::function<void()> reset;
};

#ifdef __x86_64__
// Flush to zero (0x8000) and denormals are zero (0x40), alone and together with rounding upwards.
Setting flush_to_zero(const std::string& name, unsigned bits) {
  return {name, [bits] { _mm_setcsr(_mm_getcsr() | bits); }, [] { std::fesetenv(FE_DFL_ENV); }};
}
#endif

std::vector<Setting> settings_of_hosts() {
  std::vector<Setting> settings = {
      {"de_DE", [] { EXPECT_NE(nullptr, std::setlocale(LC_ALL, "de_DE.UTF-8")) << "the locale is not installed"; },
       [] { std::setlocale(LC_ALL, "C"); }},
      {"global locale of C++", [] { std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation)); },
       [] { std::locale::global(std::locale::classic()); }},
      {"traps on", [] { feenableexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW | FE_UNDERFLOW | FE_INEXACT); },
       [] { fedisableexcept(FE_ALL_EXCEPT); }},
  };
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
    settings.push_back({"rounding mode " + std::to_string(mode), [mode] { std::fesetround(mode); },
                        [] { std::fesetround(FE_TONEAREST); }});
  }
#ifdef __x86_64__
  settings.push_back(flush_to_zero("flush to zero", 0x8000));
  settings.push_back(flush_to_zero("denormals are zero", 0x40));
  settings.push_back(flush_to_zero("both, and rounding upwards", 0x8040 | _MM_ROUND_UP));
#endif
  return settings;
}

TEST_F(ProcessState, HasNoInfluenceOnResultsAndTexts) {
  std::vector<std::string> expected;
  for (const Call& call : calls) {
    const std::string output = folder.path("default_" + call.name);
    call_library(call.input, output);
    expected.push_back(read_file(output));
  }
  for (const Setting& setting : settings_of_hosts()) {
    for (std::size_t i = 0; i < calls.size(); ++i) {
      SCOPED_TRACE(setting.name + ", " + calls[i].name);
      const std::string output = folder.path("other_" + calls[i].name);
      char text[VORLEN_ERROR_BUFFER_SIZE] = "";
      setting.set();
      std::feclearexcept(FE_ALL_EXCEPT);
      const State before = process_state();
      const std::int32_t result = runSurfChem(calls[i].input.c_str(), output.c_str(), text);
      const State after = process_state();
      setting.reset();
      EXPECT_EQ(calls[i].result, result);
      EXPECT_STREQ(calls[i].text.c_str(), text);
      EXPECT_EQ(expected[i], read_file(output));
      EXPECT_EQ("", changes(before, after));
    }
  }
}

}  // namespace
}  // namespace vorlen_test
