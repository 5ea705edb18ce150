// The life of one report, from a crash to its deletion, in processes that share nothing but the
// directory of the reports: a worker crashes, its watcher makes a report of that, the consent
// process takes the report through its stages, and a viewer shows it and deletes it.
//
//   crash_demo [ROOT]                 plays all of it, with the reports under ROOT or, without one,
//   in
//                                     a new directory that is removed at the end
//   crash_demo --role NAME ROOT ID    is one of its processes
//
// The exit status is 0 when every step succeeded.

#include "console.h"
#include "program.h"
#include "roles.h"
#include "steps.h"

#include <stdlib.h>
#include <sys/wait.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string_view>

namespace CrashDemo {
namespace {

struct Role {
  const char* name;
  int colour;
  void (*run)(const Console&, const Assignment&);
};

/** In the order in which they are played. */
constexpr Role kRoles[] = {
    {"watcher", 33, runWatcher},
    {"consent", 32, runConsent},
    {"viewer", 36, runViewer},
};

/** A new directory, removed at the end. */
class TemporaryRoot {
 public:
  TemporaryRoot() {
    std::string name = (std::filesystem::temp_directory_path() / "crash_demo-XXXXXX").string();
    require(::mkdtemp(name.data()) != nullptr, "making " + name);
    path_ = name;
  }
  ~TemporaryRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryRoot(const TemporaryRoot&) = delete;
  TemporaryRoot& operator=(const TemporaryRoot&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

void playAll(const Console& console, const std::filesystem::path& root) {
  // All roles are told which report is theirs, so that the root may hold others as well.
  KELP::Diagnostic::ReportUuid id;
  id.randomize();
  console.say("keeps reports under " + root.string());
  for (const Role& role : kRoles) {
    Program process({ownPath().string(), "--role", role.name, root.string(), id.toString()});
    const int status = process.wait();
    require(WIFEXITED(status) && WEXITSTATUS(status) == 0, std::string("the ") + role.name);
  }
  console.say("all steps succeeded");
}

/** Runs @p work. @return the exit status of the process. */
int finish(const Console& console, const std::function<void()>& work) {
  try {
    work();
    return 0;
  } catch (const std::exception& failure) {
    console.complain(failure.what());
    return 1;
  }
}

int direct(std::optional<std::filesystem::path> root) {
  const Console console("demo", 37);
  return finish(console, [&] {
    if (root) {
      playAll(console, *root);
    } else {
      const TemporaryRoot temporary;
      playAll(console, temporary.path());
    }
  });
}

int play(std::string_view name, const std::filesystem::path& root, const char* idText) {
  for (const Role& role : kRoles) {
    if (name == role.name) {
      const Console console(role.name, role.colour);
      return finish(console, [&] {
        Assignment assignment{KELP::Diagnostic::DiagnosticData(root), {}};
        require(assignment.id.parse(idText), "reading the identifier");
        role.run(console, assignment);
      });
    }
  }
  return 2;
}

}  // namespace
}  // namespace CrashDemo

int main(int argc, char** argv) {
  if (argc == 5 && std::string_view(argv[1]) == "--role") {
    return CrashDemo::play(argv[2], argv[3], argv[4]);
  }
  if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
    std::cerr << "usage: crash_demo [ROOT]\n";
    return 2;
  }
  return CrashDemo::direct(argc == 2 ? std::optional<std::filesystem::path>(argv[1])
                                     : std::nullopt);
}
