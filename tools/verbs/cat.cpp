#include "base/interrupt.h"
#include "base/output.h"
#include "base/text.h"
#include "reports/contents.h"
#include "reports/describe.h"
#include "reports/repository.h"
#include "verbs/verb.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace KELP::Tool {
namespace {

struct CatOptions {
  std::string id;
  std::string name;
  std::optional<int> level;
  bool allLevels = false;
  bool force = false;
};

std::string quoted(const std::string& text) {
  return "\"" + escaped(text) + "\"";
}

const Property& requireProperty(const StoredReport& report, const std::string& name) {
  if (const Property* const property = findProperty(report, name)) {
    return *property;
  }
  throw Failure(ExitStatus::NotFound,
                "the report " + report.name + " has no property " + quoted(name));
}

/** The variation that is asked for. Throws a Failure when there is none, and when it must not get
 * out. */
const Variation& requireVariation(const Property& property, int permitted,
                                  const CatOptions& options) {
  const auto refuse = [&](const std::string& what) {
    throw Failure(ExitStatus::Failed, what + " above the permitted level " +
                                          std::to_string(permitted) +
                                          " (--all-levels writes it all the same)");
  };
  const std::string name = quoted(property.stable_id);
  constexpr int kAll = std::numeric_limits<int>::max();
  const Variation* const wanted =
      options.level ? findVariation(property, *options.level)
                    : bestVariation(property, options.allLevels ? kAll : permitted);
  if (wanted == nullptr) {
    if (!options.level && bestVariation(property, kAll) != nullptr) {
      refuse("every variation of " + name + " is");
    }
    throw Failure(ExitStatus::NotFound, options.level ? name + " has no variation of level " +
                                                            std::to_string(*options.level)
                                                      : name + " has no variation to choose");
  }
  if (!options.allLevels && !isPermitted(*wanted, permitted)) {
    refuse("level " + std::to_string(wanted->sensitivity_level) + " of " + name + " is");
  }
  return *wanted;
}

/** A stored file that is read in pieces, however large it is. */
class StoredFile {
 public:
  /** Throws a Failure unless it is a regular file within the report. */
  StoredFile(const StoredReport& report, const Variation& variation)
      : name_(quoted(pathInReport(report, variation))) {
    switch (lookAtFile(report, variation).state) {
      case FileState::Missing:
        throw Failure(ExitStatus::Damage, "the file " + name_ + " is missing");
      case FileState::Outside:
        throw Failure(ExitStatus::Damage, "the file " + name_ + " is outside of the report");
      case FileState::Irregular:
        failAsIrregular();
      case FileState::Present:
        break;
    }
    // Whatever takes its place meanwhile is neither followed nor waited for.
    descriptor_ = ::open(storedFile(report, variation)->c_str(),
                         O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor_ < 0) {
      failToRead();
    }
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
      ::close(descriptor_);
      failAsIrregular();
    }
  }
  ~StoredFile() { ::close(descriptor_); }
  StoredFile(const StoredFile&) = delete;
  StoredFile& operator=(const StoredFile&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }

  /** Calls @p take with one piece after the other until it returns false. */
  void forEachPiece(const std::function<bool(std::string_view)>& take) const {
    std::vector<char> piece(kPiece);
    for (off_t at = 0;;) {
      checkInterrupt();
      const ssize_t size = ::pread(descriptor_, piece.data(), piece.size(), at);
      if (size < 0) {
        failToRead();
      }
      if (size == 0 || !take({piece.data(), static_cast<std::size_t>(size)})) {
        return;
      }
      at += size;
    }
  }

  /** As forEachPiece(), but characters of UTF-8 stay whole. */
  void forEachPieceOfText(const std::function<bool(std::string_view)>& take) const {
    std::string left;
    bool goesOn = true;
    forEachPiece([&](std::string_view piece) {
      left += piece;
      const std::size_t whole = wholeCharacters(left);
      goesOn = take(std::string_view(left).substr(0, whole));
      left.erase(0, whole);
      return goesOn;
    });
    if (goesOn && !left.empty()) {
      take(left);
    }
  }

 private:
  static constexpr std::size_t kPiece = 65'536;

  [[noreturn]] void failAsIrregular() const {
    throw Failure(ExitStatus::Damage, "the file " + name_ + " is not a regular file");
  }
  [[noreturn]] void failToRead() const {
    throw Failure(ExitStatus::Failed,
                  "cannot read " + name_ + ": " + std::system_category().message(errno));
  }

  std::string name_;  ///< For messages.
  int descriptor_ = -1;
};

[[noreturn]] void refuseBinary(const std::string& what) {
  throw Failure(ExitStatus::Failed, what + " is binary (--force writes it to the terminal)");
}

void writeFile(const StoredFile& file, bool forTerminal) {
  if (!forTerminal) {
    file.forEachPiece([](std::string_view piece) {
      print(piece);
      return true;
    });
    return;
  }
  bool isBinary = false;
  file.forEachPieceOfText([&](std::string_view piece) {
    isBinary = !isText(piece);
    return !isBinary;
  });
  if (isBinary) {
    refuseBinary("the file " + file.name());
  }
  file.forEachPieceOfText([](std::string_view piece) {
    print(escapedLines(piece));
    return true;
  });
}

void writeValue(const std::string& value, const std::string& name, bool forTerminal) {
  if (forTerminal && !isText(value)) {
    refuseBinary("the value of " + quoted(name));
  }
  print(forTerminal ? escapedLines(value) : value);
}

ExitStatus cat(const Context& context, const CatOptions& options) {
  const StoredReport report = findSoundReport(context.root, options.id);
  const Property& property = requireProperty(report, options.name);
  const Variation& variation =
      requireVariation(property, report.metadata.permittedLevel(), options);
  const bool forTerminal = outputIsTerminal() && !options.force;
  if (property.isFileProperty()) {
    writeFile(StoredFile(report, variation), forTerminal);
  } else {
    writeValue(valueText(variation, property.property_type), options.name, forTerminal);
  }
  return ExitStatus::Done;
}

}  // namespace

void addCat(CLI::App& program, Context& context) {
  const auto verb = addVerb<CatOptions>(
      program, context, "cat", "Write a value or a file of a report to the standard output",
      "  kelp-diagnostics cat 3f2a log > log.txt\n"
      "  kelp-diagnostics cat 3f2a screenshot --level 10 | display\n"
      "  kelp-diagnostics cat 3f2a log --level 40 --all-levels\n"
      "\n"
      "Bytes are written as they are stored, and nothing is added. Only on a terminal are\ncontrol "
      "characters escaped, but for newlines and tabs.\n",
      cat);
  addId(*verb.app, verb->id);
  verb.app->add_option("NAME", verb->name, "The property")->required();
  verb.app
      ->add_option("--level", verb->level,
                   "The variation of this level, instead of the best one that is permitted")
      ->type_name("LEVEL");
  verb.app->add_flag("--all-levels", verb->allLevels, "Also levels above the permitted one");
  verb.app->add_flag("--force", verb->force,
                     "Write to a terminal too what is binary, and escape nothing");
}

}  // namespace KELP::Tool
