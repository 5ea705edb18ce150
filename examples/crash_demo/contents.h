#pragma once

#include <diagnostic/diagnosticreport.h>

#include <string>

/** What the contents of a crash report are called in this demo, and how sensitive they are. */
namespace CrashDemo::Contents {

constexpr const char* kSignal = "signal";
constexpr const char* kFaultAddress = "fault_address";
constexpr const char* kUptime = "uptime";
constexpr const char* kCoreDumped = "core_dumped";
constexpr const char* kMemoryMap = "memory_map";
constexpr const char* kSystem = "system";
constexpr const char* kLog = "log";

constexpr const char* kPlainText = "text/plain";

// Levels of sensitivity. The library only compares them with what the user consents to.

constexpr int kTechnical = 0;  ///< Says nothing of the user.
constexpr int kCleaned = 10;   ///< What names the user was removed.
constexpr int kPersonal = 20;  ///< May show what the user did.

using KELP::Diagnostic::DiagnosticReport;

/** Adds a file with @p text as a variation, by way of a temporary file of the report. */
void addText(DiagnosticReport& report, const std::string& property, int level,
             const std::string& text);

/** The value of a variation, as text. */
[[nodiscard]] std::string valueText(DiagnosticReport::PropertyTypes type,
                                    const DiagnosticReport::Variations& variation);

/** The value of a variation, or the name and the size of its file. */
[[nodiscard]] std::string describe(const DiagnosticReport& report,
                                   const DiagnosticReport::Properties& property,
                                   const DiagnosticReport::Variations& variation);

/** The name and the size of a file. */
[[nodiscard]] std::string describeFile(const std::filesystem::path& file);

}  // namespace CrashDemo::Contents
