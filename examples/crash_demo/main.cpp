// The life of one report, from a crash to its deletion, in processes that share nothing but the
// directory of the reports: a worker crashes, its watcher makes a report of that, a collector adds
// the worker's log, a filter cleans it, the user consents to some of it, a policy drops the rest,
// an uploader copies what is left to an outbox, and a viewer shows the report and deletes it. An
// observer is told of every change by the library, while the others are at it.
//
//   crash_demo [DIR]                 plays all of it in DIR (reports/, logs/, outbox/ and the file
//                                    changes), or in a new directory that is removed at the end
//   crash_demo --role NAME DIR ID    is one of its processes
//
// The exit status is 0 when every step succeeded.

#include "connection.h"
#include "console.h"
#include "program.h"
#include "roles.h"
#include "steps.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CrashDemo {
namespace {

struct Role {
  const char* name;
  int colour;
  void (*run)(const Console&, Assignment&);
};

constexpr Role kObserver{"observer", 90, runObserver};

/** In the order in which they are played. */
constexpr Role kRoles[] = {
    {"watcher", 33, runWatcher}, {"collector", 34, runCollector}, {"filter", 35, runFilter},
    {"consent", 32, runConsent}, {"policy", 93, runPolicy},       {"uploader", 94, runUploader},
    {"viewer", 36, runViewer},
};

/** A new directory, removed at the end. */
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "crash_demo-XXXXXX").string();
    require(::mkdtemp(name.data()) != nullptr, "making " + name);
    path_ = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

bool succeeded(int status) {
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/** The directory and the report of all roles, so that there may be other reports as well. */
class Play {
 public:
  explicit Play(const std::filesystem::path& directory) : directory_(directory.string()) {
    id_.randomize();
  }

  [[nodiscard]] std::vector<std::string> command(const Role& role) const {
    return {ownPath().string(), "--role", role.name, directory_, id_.toString()};
  }

 private:
  std::string directory_;
  KELP::Diagnostic::ReportUuid id_;
};

/** The process that observes what the others do. Its input ends with this process. */
class Observer {
 public:
  /** Returns when it observes. */
  explicit Observer(const Play& play)
      : program_(play.command(kObserver), connection_.programEnd(), STDIN_FILENO) {
    connection_.leaveProgramEnd();
    waitForWord();
  }

  /** Waits until it knows of the report. From then on no change escapes it. */
  void waitForReport() { waitForWord(); }
  /** Waits until it has been told that the report is gone. */
  void finish() { require(succeeded(program_.wait()), "the observer"); }

 private:
  void waitForWord() {
    char word = 0;
    ssize_t count = 0;
    do {
      count = ::recv(connection_.ownEnd(), &word, 1, 0);
    } while (count < 0 && errno == EINTR);
    require(count == 1, "the observer");
  }

  Connection connection_;
  Program program_;
};

void playAll(const Console& console, const std::filesystem::path& directory) {
  console.say("works in " + directory.string());
  const Play play(directory);
  Observer observer(play);
  for (const Role& role : kRoles) {
    require(succeeded(Program(play.command(role)).wait()), std::string("the ") + role.name);
    if (role.run == runWatcher) {
      observer.waitForReport();
    }
  }
  observer.finish();
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

int direct(std::optional<std::filesystem::path> directory) {
  const Console console("demo", 37);
  return finish(console, [&] {
    if (directory) {
      playAll(console, *directory);
    } else {
      const TemporaryDirectory temporary;
      playAll(console, temporary.path());
    }
  });
}

const Role* roleOf(std::string_view name) {
  if (name == kObserver.name) {
    return &kObserver;
  }
  const auto* const role = std::find_if(std::begin(kRoles), std::end(kRoles),
                                        [&](const Role& each) { return name == each.name; });
  return role == std::end(kRoles) ? nullptr : role;
}

int play(std::string_view name, const std::filesystem::path& directory, const char* idText) {
  const Role* const role = roleOf(name);
  if (role == nullptr) {
    return 2;
  }
  const Console console(role->name, role->colour);
  return finish(console, [&] {
    KELP::Diagnostic::ReportUuid id;
    require(id.parse(idText), "reading the identifier");
    Assignment assignment(std::filesystem::absolute(directory), id);
    if (role != &kObserver) {
      assignment.changes.start(role->name);
    }
    role->run(console, assignment);
  });
}

}  // namespace
}  // namespace CrashDemo

int main(int argc, char** argv) {
  if (argc == 5 && std::string_view(argv[1]) == "--role") {
    return CrashDemo::play(argv[2], argv[3], argv[4]);
  }
  if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
    std::cerr << "usage: crash_demo [DIR]\n";
    return 2;
  }
  return CrashDemo::direct(argc == 2 ? std::optional<std::filesystem::path>(argv[1])
                                     : std::nullopt);
}
