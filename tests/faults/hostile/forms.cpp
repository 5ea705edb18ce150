#include "faults/hostile/forms.h"

#include "faults/hostile/scene.h"
#include "support/temporarydirectory.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Kind = Form::Kind;

std::string errorUnless(bool made) {
  return made ? "" : std::strerror(errno);
}

/** A link to an entry of the directory outside, or to any path. */
Form link(const char* name, Kind kind, const fs::path& target) {
  return {name, kind, true, [target](const fs::path& place, const fs::path& outside) {
            fs::create_symlink(outside / target, place);
            return std::string();
          }};
}

Form file(const char* name, const std::string& content) {
  return {name, Kind::File, false, [content](const fs::path& place, const fs::path&) {
            writeFile(place, content);
            return std::string();
          }};
}

Form node(const char* name, mode_t type, dev_t device = 0) {
  return {name, Kind::Other, false, [=](const fs::path& place, const fs::path&) {
            return errorUnless(::mknod(place.c_str(), type | 0666, device) == 0);
          }};
}

/** A terminal whose other end is open for as long as this program runs. */
std::string terminal() {
  static const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  static const bool isOpen = master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0;
  char name[64] = "";
  return isOpen && ::ptsname_r(master, name, sizeof name) == 0 ? name : "";
}

std::string linkToTerminal(const fs::path& place, const fs::path&) {
  if (terminal().empty()) {
    return "there are no pseudo-terminals";
  }
  fs::create_symlink(terminal(), place);
  return "";
}

std::string makeSocket(const fs::path& place, const fs::path&) {
  // By a short path, since an address has little room.
  const int directory = ::open(place.parent_path().c_str(), O_PATH | O_CLOEXEC);
  const std::string path =
      "/proc/self/fd/" + std::to_string(directory) + "/" + place.filename().string();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const std::string error = errorUnless(
      ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  ::close(descriptor);
  ::close(directory);
  return error;
}

std::string makeFullDirectory(const fs::path& place, const fs::path& outside) {
  fs::create_directories(place / "deep");
  writeFile(place / "file", "content");
  fs::create_symlink(outside, place / "link");
  return "";
}

std::string makeHugeFile(const fs::path& place, const fs::path&) {
  writeFile(place, "KELPKV1\n");
  return errorUnless(::truncate(place.c_str(), off_t{1} << 40) == 0);
}

}  // namespace

const std::vector<Form>& forms() {
  static const std::vector<Form> all{
      link("link to a file outside", Kind::File, "file"),
      link("link to a directory outside", Kind::Directory, "directory"),
      link("dangling link", Kind::Nothing, "missing"),
      {"link in a circle", Kind::Circle, true,
       [](const fs::path& place, const fs::path&) {
         fs::create_symlink(place.filename(), place);
         return std::string();
       }},
      link("link to a fifo", Kind::Other, "fifo"),
      link("link to an endless device", Kind::Other, "/dev/zero"),
      {"link to a terminal", Kind::Other, true, linkToTerminal},
      link("link to another report", Kind::Directory, fs::path("../reports") / kOtherId),
      link("link to another report's metadata", Kind::File,
           fs::path("../reports") / kOtherId / "metadata.db"),
      node("fifo", S_IFIFO),
      {"socket", Kind::Other, false, makeSocket},
      node("null device", S_IFCHR, makedev(1, 3)),
      node("endless device", S_IFCHR, makedev(1, 5)),
      node("terminal device", S_IFCHR, makedev(5, 0)),
      {"empty directory", Kind::Directory, false,
       [](const fs::path& place, const fs::path&) {
         fs::create_directory(place);
         return std::string();
       }},
      {"full directory", Kind::Directory, false, makeFullDirectory},
      file("empty file", ""),
      file("file of nonsense", "nonsense\n"),
      {"huge file", Kind::File, false, makeHugeFile},
  };
  return all;
}

}  // namespace KELP::Test
