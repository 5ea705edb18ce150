#include "contents.h"

#include "steps.h"

#include <fstream>
#include <sstream>

namespace CrashDemo::Contents {

void addText(DiagnosticReport& report, const std::string& property, int level,
             const std::string& text) {
  const auto file = require(report.createReportTemporaryFile(), "making a temporary file");
  std::ofstream stream(require(file->getPath(), "the path of the temporary file"));
  stream << text;
  stream.close();
  require(stream.good(), "writing the temporary file");
  require(report.moveReportTemporaryFileToFileProperty(property, level, file, property + ".txt",
                                                       /*overwrite=*/false),
          "moving the temporary file to " + property);
}

std::string valueText(DiagnosticReport::PropertyTypes type,
                      const DiagnosticReport::Variations& variation) {
  using Type = DiagnosticReport::PropertyTypes;
  std::ostringstream text;
  switch (type) {
    case Type::STRING:
      text << variation.string;
      break;
    case Type::INTEGER:
      text << variation.integer;
      break;
    case Type::DOUBLE:
      text << variation.double_;
      break;
    case Type::BOOLEAN:
      text << (variation.boolean ? "true" : "false");
      break;
    case Type::FILE:
      text << variation.relative_path;
      break;
    case Type::UNKNOWN:
      break;
  }
  return text.str();
}

std::string describeFile(const std::filesystem::path& file) {
  return "file " + file.filename().string() + ", " +
         std::to_string(std::filesystem::file_size(file)) + " bytes";
}

std::string describe(const DiagnosticReport& report, const DiagnosticReport::Properties& property,
                     const DiagnosticReport::Variations& variation) {
  return property.isFileProperty()
             ? describeFile(require(report.getReportFileVariationPath(property.stable_id,
                                                                      variation.sensitivity_level),
                                    "the file of " + property.stable_id))
             : valueText(property.property_type, variation);
}

}  // namespace CrashDemo::Contents
