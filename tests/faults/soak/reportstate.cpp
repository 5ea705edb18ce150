#include "faults/soak/reportstate.h"

#include "support/temporarydirectory.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace KELP::Test::Soak {
namespace {

namespace fs = std::filesystem;
using Diagnostic::ReportUuid;

constexpr int kInitialConsent = 20;
constexpr int kInitialMaxConsent = 30;

std::uint64_t digest(const std::string& text) {
  std::uint64_t result = 14695981039346656037U;
  for (const char c : text) {
    result = (result ^ static_cast<unsigned char>(c)) * 1099511628211U;
  }
  return result;
}

std::string hex(std::uint64_t number) {
  std::array<char, 17> text{};
  std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(number));
  return text.data();
}

int partOf(const ReportUuid& id, std::size_t offset) {
  int part = 0;
  std::memcpy(&part, id.raw() + offset, sizeof(part));
  return part;
}

template <typename T>
std::optional<T> optionalOf(OS::expected<T, Diagnostic::DiagnosticError> result) {
  return result ? std::optional<T>(std::move(result).value()) : std::nullopt;
}

template <typename T>
void print(std::ostream& out, const char* name, const std::optional<T>& value) {
  out << name << '=';
  if (value) {
    out << '"' << *value << '"';
  }
  out << ' ';
}

void print(std::ostream& out, const Property& property) {
  out << property.stable_id << ':' << static_cast<int>(property.property_type) << ':'
      << property.media_type << " tags";
  for (const std::string& tag : property.tags) {
    out << ',' << tag;
  }
  for (const Variation& v : property.variations) {
    out << " {" << v.sensitivity_level << ',' << v.relative_path << ',' << v.string << ','
        << v.integer << ',' << v.double_ << ',' << v.boolean << '}';
  }
  out << "; ";
}

/** The files of all file properties, by the paths that the report gives. */
void readFiles(const Report& report, ReportState& state) {
  for (const Property& property : *state.contents) {
    for (const Variation& variation : property.variations) {
      if (!property.isFileProperty()) {
        continue;
      }
      const int level = variation.sensitivity_level;
      const auto path = report.getReportFileVariationPath(property.stable_id, level);
      state.files[{property.stable_id, level}] =
          path ? describeFile(path.value()) : path.error().message;
    }
  }
}

}  // namespace

Maker::Maker(const ReportUuid& id)
    : app(partOf(id, 0)),
      build(partOf(id, 4)),
      user(partOf(id, 8)),
      device("device of " + id.toString()),
      session("session of " + id.toString()) {}

std::string ReportState::metadataText() const {
  std::ostringstream out;
  print(out, "app", app);
  print(out, "build", build);
  print(out, "user", user);
  print(out, "device", device);
  print(out, "session", session);
  out << "consent=" << consent << '/' << maxConsent << " stages=";
  for (const bool stage : stages) {
    out << (stage ? '1' : '0');
  }
  out << ' ';
  print(out, "description", description);
  print(out, "pid", pid);
  print(out, "process", processName);
  out << "libraries=" << (libraries ? "" : "none");
  for (const std::string& library : libraries.value_or(std::vector<std::string>())) {
    out << library << ',';
  }
  out << " contents=" << (contents ? "" : "none");
  for (const Property& property : contents.value_or(std::vector<Property>())) {
    print(out, property);
  }
  return out.str();
}

std::string ReportState::filesText() const {
  std::ostringstream out;
  for (const auto& [variation, file] : files) {
    out << variation.first << '/' << variation.second << '=' << file << ' ';
  }
  return out.str();
}

std::string ReportState::token() const {
  return hex(digest(metadataText())) + '.' + hex(digest(filesText()));
}

ReportState readState(const Report& report) {
  ReportState state;
  state.app = optionalOf(report.getReporterAppId());
  state.build = optionalOf(report.getBuildId());
  state.user = optionalOf(report.getUserId());
  state.device = optionalOf(report.getDeviceId());
  state.session = optionalOf(report.getSessionId());
  state.consent = report.getCurrentConsentLevel();
  state.maxConsent = report.getMaxConsentLevel();
  state.stages = {report.isCreationComplete(), report.isUserInteractionComplete(),
                  report.isDataCollectionComplete(), report.isDataPolicyApplied(),
                  report.isUploadComplete()};
  state.description = report.getDescription();
  state.pid = report.getPID();
  state.processName = report.getProcessName();
  state.libraries = report.getLoadedLibraries();
  state.contents = report.getReportContents();
  if (state.contents) {
    readFiles(report, state);
  }
  return state;
}

ReportState initialState(const ReportUuid& id) {
  const Maker maker(id);
  ReportState state;
  state.app = maker.app;
  state.build = maker.build;
  state.user = maker.user;
  state.device = maker.device;
  state.session = maker.session;
  state.consent = kInitialConsent;
  state.maxConsent = kInitialMaxConsent;
  return state;
}

bool isBeginning(const ReportState& state, const ReportUuid& id) {
  ReportState left = initialState(id);
  const auto matches = [&] { return left.metadataText() == state.metadataText(); };
  if (matches()) {
    return true;
  }
  // What is written last is lacking first.
  left.maxConsent = 0;
  if (matches()) return true;
  left.consent = 0;
  if (matches()) return true;
  left.session.reset();
  if (matches()) return true;
  left.device.reset();
  if (matches()) return true;
  left.user.reset();
  if (matches()) return true;
  left.build.reset();
  if (matches()) return true;
  left.app.reset();
  return matches();
}

std::string fileContent(const std::string& number, std::size_t size) {
  std::string content;
  const std::string line = number + ' ' + std::to_string(size) + '\n';
  while (content.size() < size) {
    content += line;
  }
  return content;
}

std::string describeFile(const fs::path& path) {
  std::error_code ignored;
  if (!fs::exists(path, ignored)) {
    return "missing";
  }
  const std::string content = readFile(path);
  if (content.empty()) {
    return "empty";
  }
  std::istringstream start(content);
  std::string number;
  std::size_t size = 0;
  if (!(start >> number >> size)) {
    return "damaged";
  }
  const std::string whole = fileContent(number, size);
  if (content == whole) {
    return number + " whole";
  }
  return whole.starts_with(content) ? number + " torn" : "damaged";
}

}  // namespace KELP::Test::Soak
