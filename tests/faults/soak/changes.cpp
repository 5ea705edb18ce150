#include "faults/soak/changes.h"

#include "support/temporarydirectory.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <utility>

// What each change does to a report, in this test's own words: what the library does is compared
// with it.

namespace KELP::Test::Soak {
namespace {

namespace fs = std::filesystem;
using Result = Report::Result;

constexpr std::array<int, 4> kLevels{-1, 0, 15, 25};
constexpr std::array<int, 5> kConsents{-2, 0, 10, 20, 30};
constexpr std::array<const char*, 3> kTags{"ui", "kernel", "a tag"};

struct Name {
  const char* name;
  Type type;
};
constexpr std::array<Name, 7> kNames{{{"log", Type::FILE},
                                      {"screen shot", Type::FILE},
                                      {"title", Type::STRING},
                                      {"count", Type::INTEGER},
                                      {"ratio", Type::DOUBLE},
                                      {"seen", Type::BOOLEAN},
                                      {"missing", Type::STRING}}};

Property* find(ReportState& state, const std::string& name) {
  if (!state.contents) return nullptr;
  const auto found = std::ranges::find(*state.contents, name, &Property::stable_id);
  return found == state.contents->end() ? nullptr : &*found;
}

Variation* find(Property* property, int level) {
  if (property == nullptr) return nullptr;
  const auto found = std::ranges::find(property->variations, level, &Variation::sensitivity_level);
  return found == property->variations.end() ? nullptr : &*found;
}

Change begin(const char* name, const Ingredients& of) {
  return {name, std::nullopt, of.before, {}, {}};
}

/** A small number that is as good as unique. */
int numberOf(const Ingredients& of) {
  return static_cast<int>(std::hash<std::string>()(of.number) & 0x7fffffffU);
}

// --- Single values ---

Change description(const Ingredients& of) {
  Change change = begin("setDescription", of);
  // Now and then a long one, so that stores grow and are compacted.
  const std::string text = of.chance.oneIn(8)
                               ? fileContent(of.number, 2000 + of.chance.below(12000))
                               : "description " + of.number;
  change.after.description = text;
  change.act = [text](Report& r) { return r.setDescription(text); };
  return change;
}

Change touch(const Ingredients& of) {
  Change change = begin("touch", of);
  change.act = [](Report& r) { return r.touch(); };
  return change;
}

Change pid(const Ingredients& of) {
  Change change = begin("setPID", of);
  if (of.before.is(Stage::Creation)) change.refusal = "PID can only be set during report creation";
  const int value = numberOf(of);
  change.after.pid = value;
  change.act = [value](Report& r) { return r.setPID(value); };
  return change;
}

Change processName(const Ingredients& of) {
  Change change = begin("setProcessName", of);
  if (of.before.is(Stage::Creation)) {
    change.refusal = "Process name can only be set during report creation";
  }
  const std::string value = "process " + of.number;
  change.after.processName = value;
  change.act = [value](Report& r) { return r.setProcessName(value); };
  return change;
}

Change libraries(const Ingredients& of) {
  Change change = begin("setLoadedLibraries", of);
  if (of.before.is(Stage::Creation)) {
    change.refusal = "Loaded Libraries list can only be set during report creation";
  }
  const std::vector<std::string> value{"/lib/" + of.number + ".so", "/lib/libc.so.6"};
  change.after.libraries = value;
  change.act = [value](Report& r) { return r.setLoadedLibraries(value); };
  return change;
}

Change consent(const Ingredients& of) {
  Change change = begin("setCurrentConsentLevel", of);
  if (of.before.is(Stage::Creation) && of.before.is(Stage::Interaction)) {
    change.refusal = "Current report status does not support consent level changes";
  }
  const int level = of.chance.of(kConsents);
  change.after.consent = level;
  change.act = [level](Report& r) { return r.setCurrentConsentLevel(level); };
  return change;
}

Change maxConsent(const Ingredients& of) {
  Change change = begin("setMaxConsentLevel", of);
  if (of.before.is(Stage::Creation)) {
    change.refusal = "Current report status does not support max consent level changes";
  }
  const int level = of.chance.of(kConsents);
  change.after.maxConsent = level;
  change.act = [level](Report& r) { return r.setMaxConsentLevel(level); };
  return change;
}

// --- Stages ---

struct Mark {
  Stage stage;
  const char* name;
  Result (Report::*act)();
  const char* refusal;
};
constexpr std::array<Mark, 5> kMarks{{
    {Stage::Creation, "markCreationComplete", &Report::markCreationComplete,
     "Report creation is already complete"},
    {Stage::Interaction, "markUserInteractionComplete", &Report::markUserInteractionComplete,
     "User interaction is already complete"},
    {Stage::Collection, "markDataCollectionComplete", &Report::markDataCollectionComplete,
     "Current report status does not support marking data collection as completed"},
    {Stage::Policy, "markDataPolicyApplied", &Report::markDataPolicyApplied,
     "Current report status does not support marking policy application as completed"},
    {Stage::Upload, "markUploadComplete", &Report::markUploadComplete,
     "Current report status does not support marking upload as completed"},
}};

bool mayMark(const ReportState& state, Stage stage) {
  if (state.is(stage)) return false;
  switch (stage) {
    case Stage::Collection:
      return state.is(Stage::Creation);
    case Stage::Policy:
      return state.is(Stage::Creation) && state.is(Stage::Interaction) &&
             state.is(Stage::Collection);
    case Stage::Upload:
      return state.is(Stage::Creation) && state.is(Stage::Interaction) &&
             state.is(Stage::Collection) && state.is(Stage::Policy);
    default:
      return true;
  }
}

Change mark(const Ingredients& of) {
  const Mark& mark = of.chance.of(kMarks);
  Change change = begin(mark.name, of);
  if (!mayMark(of.before, mark.stage)) change.refusal = mark.refusal;
  change.after.stages.at(static_cast<std::size_t>(mark.stage)) = true;
  change.act = [act = mark.act](Report& r) { return (r.*act)(); };
  return change;
}

// --- Properties ---

Change createProperty(const Ingredients& of) {
  Change change = begin("createReportContentProperty", of);
  const Name& name = kNames[of.chance.below(kNames.size() - 1)];
  const bool isFile = name.type == Type::FILE;
  const std::set<std::string> tags{of.chance.of(kTags), "tag " + of.number};
  if (of.before.is(Stage::Collection)) {
    change.refusal = "Report status does not allow creation of new content properties";
  } else if (find(change.after, name.name) != nullptr) {
    change.refusal = "Report content property to be created already exists";
  } else {
    if (!change.after.contents) change.after.contents.emplace();
    change.after.contents->push_back({name.name, name.type, isFile ? "text/plain" : "", tags, {}});
  }
  change.act = [name, tags, isFile](Report& r) {
    return isFile ? r.createReportFileProperty(name.name, "text/plain", tags)
                  : r.createReportContentProperty(name.name, name.type, "", tags);
  };
  return change;
}

Change addTag(const Ingredients& of) {
  Change change = begin("addTagToContentProperty", of);
  const std::string name = of.chance.of(kNames).name;
  const std::string tag = of.chance.of(kTags);
  Property* const property = find(change.after, name);
  if (of.before.is(Stage::Collection)) {
    change.refusal = "Adding tags to report after collection is completed is not allowed";
  } else if (!of.before.contents) {
    change.refusal = "Cannot update content tags on report with no contents";
  } else if (property == nullptr) {
    change.refusal = "Report content property to be tagged does not exist in the report";
  } else {
    property->tags.insert(tag);
  }
  change.act = [name, tag](Report& r) { return r.addTagToContentProperty(name, tag); };
  return change;
}

Change removeProperty(const Ingredients& of) {
  Change change = begin("removeReportContentProperty", of);
  const std::string name = of.chance.of(kNames).name;
  if (!of.before.contents) {
    change.refusal = "Cannot remove content properties from report with no contents";
  } else if (find(change.after, name) == nullptr) {
    change.refusal = "Report content property to be removed does not exist in the report";
  } else {
    std::erase_if(*change.after.contents, [&](const Property& p) { return p.stable_id == name; });
    std::erase_if(change.after.files, [&](const auto& file) { return file.first.first == name; });
  }
  change.act = [name](Report& r) { return r.removeReportContentProperty(name); };
  return change;
}

// --- Variations ---

/** Sets the member of the type, and calls what adds it. */
Variation valueOf(Type type, int level, const Ingredients& of) {
  Variation variation;
  variation.sensitivity_level = level;
  if (type == Type::STRING) variation.string = "value " + of.number;
  if (type == Type::INTEGER) variation.integer = numberOf(of);
  if (type == Type::DOUBLE) variation.double_ = numberOf(of) / 2.0;
  if (type == Type::BOOLEAN) variation.boolean = of.chance.oneIn(2);
  return variation;
}

Result add(Report& r, Type type, const std::string& name, const Variation& v, bool overwrite) {
  switch (type) {
    case Type::STRING:
      return r.addReportStringVariation(name, v.sensitivity_level, v.string, overwrite);
    case Type::INTEGER:
      return r.addReportIntegerVariation(name, v.sensitivity_level, v.integer, overwrite);
    case Type::DOUBLE:
      return r.addReportDoubleVariation(name, v.sensitivity_level, v.double_, overwrite);
    default:
      return r.addReportBooleanVariation(name, v.sensitivity_level, v.boolean, overwrite);
  }
}

Change addVariation(const Ingredients& of) {
  Change change = begin("addReportVariation", of);
  const Name& name = kNames[2 + of.chance.below(kNames.size() - 2)];
  const bool overwrite = !of.chance.oneIn(3);
  const Variation variation = valueOf(name.type, of.chance.of(kLevels), of);
  Property* const property = find(change.after, name.name);
  Variation* const existing = find(property, variation.sensitivity_level);
  if (!of.before.contents) {
    change.refusal = "Cannot update file variations on report with no contents";
  } else if (existing != nullptr && !overwrite) {
    change.refusal = "Variation already exists and overwrite is not allowed";
  } else if (existing != nullptr) {
    *existing = variation;
  } else if (property != nullptr) {  // Without a property nothing is added, and that is no failure.
    property->variations.push_back(variation);
  }
  change.act = [=](Report& r) { return add(r, name.type, name.name, variation, overwrite); };
  return change;
}

Change removeVariation(const Ingredients& of) {
  Change change = begin("removeContentPropertyVariation", of);
  const std::string name = of.chance.of(kNames).name;
  const int level = of.chance.of(kLevels);
  Property* const property = find(change.after, name);
  if (!of.before.contents) {
    change.refusal = "Cannot remove content property variations from report with no contents";
  } else if (find(property, level) == nullptr) {
    change.refusal = "Content property variation to remove does not exist in report";
  } else {
    std::erase_if(property->variations,
                  [&](const Variation& v) { return v.sensitivity_level == level; });
    change.after.files.erase({name, level});
  }
  change.act = [=](Report& r) { return r.removeContentPropertyVariation(name, level); };
  return change;
}

Change applyPolicy(const Ingredients& of) {
  Change change = begin("applyPolicyFilters", of);
  const int permitted = std::min(of.before.consent, of.before.maxConsent);
  if (!of.before.contents) {
    change.refusal = "Cannot remove content property variations from report with no contents";
  } else {
    for (Property& property : *change.after.contents) {
      std::erase_if(property.variations,
                    [&](const Variation& v) { return v.sensitivity_level > permitted; });
    }
    std::erase_if(change.after.files,
                  [&](const auto& file) { return file.first.second > permitted; });
  }
  change.act = [](Report& r) { return r.applyPolicyFilters(); };
  return change;
}

// --- Files ---

/** A file of a report that is written: where, and with what. */
struct Copy {
  std::string name;
  int level;
  std::string content;
  std::string fileName;
  bool overwrite;
};

/** What comes of copying a file into the report. */
void expectCopy(Change& change, const Copy& copy, const Ingredients& of) {
  Property* const property = find(change.after, copy.name);
  Variation* const existing = find(property, copy.level);
  if (!of.before.contents) {
    change.refusal = "Cannot update file variations on report with no contents";
  } else if (property == nullptr) {
    change.refusal = "Unable to determine destination path for new file";
  } else if (existing != nullptr && !copy.overwrite) {
    change.refusal = "File already exists and overwrite is not allowed";
  }
  if (change.refusal) {
    return;
  }
  const std::pair key(copy.name, copy.level);
  if (existing == nullptr) {
    Variation added;
    added.sensitivity_level = copy.level;
    added.relative_path = of.directory / "contentfiles" / copy.name / std::to_string(copy.level) /
                          (copy.fileName.empty() ? copy.name : copy.fileName);
    property->variations.push_back(added);
  } else {  // Its place is kept; who is killed leaves a part of the new file there.
    change.torn.assign(2, of.before);
    change.torn[0].files[key] = "empty";
    change.torn[1].files[key] = of.number + " torn";
    change.torn.push_back(of.before);
    change.torn[2].files[key] = of.number + " whole";
  }
  change.after.files[key] = of.number + " whole";
}

Copy makeUpCopy(const Ingredients& of) {
  const bool isLarge = of.chance.oneIn(10);
  return {kNames[of.chance.oneIn(20) ? 6 : of.chance.below(2)].name, of.chance.of(kLevels),
          fileContent(of.number, of.chance.below(isLarge ? 200000 : 9000) + 1),
          of.chance.oneIn(3) ? "a file.txt" : "", of.chance.oneIn(2)};
}

Change copyFile(const Ingredients& of) {
  Change change = begin("copyFileToFileProperty", of);
  const Copy copy = makeUpCopy(of);
  expectCopy(change, copy, of);
  change.act = [copy, source = of.source](Report& r) {
    writeFile(source, copy.content);
    return r.copyFileToFileProperty(copy.name, copy.level, source, copy.fileName, copy.overwrite);
  };
  return change;
}

Change moveTemporaryFile(const Ingredients& of) {
  Change change = begin("moveReportTemporaryFileToFileProperty", of);
  const Copy copy = makeUpCopy(of);
  expectCopy(change, copy, of);
  change.act = [copy](Report& r) -> Result {
    auto file = r.createReportTemporaryFile();
    if (!file) return file.error();
    const fs::path path = file.value()->getPath().value();
    // Not all may be written when somebody deletes the report.
    std::ofstream(path, std::ios::binary) << copy.content;
    Result moved = r.moveReportTemporaryFileToFileProperty(copy.name, copy.level, file.value(),
                                                           copy.fileName, copy.overwrite);
    if (moved && (file.value()->isValid() || fs::exists(path))) {
      return Diagnostic::DiagnosticError({}, "the temporary file is still there");
    }
    return moved;
  };
  return change;
}

Change filterFile(const Ingredients& of) {
  Change change = begin("filterFileVariation", of);
  Copy copy = makeUpCopy(of);
  copy.overwrite = true;
  Property* const property = find(change.after, copy.name);
  if (find(property, copy.level) == nullptr || !property->isFileProperty()) {
    change.refusal = "Unable to get path for report file variation that does not exist";
  } else if (of.chance.oneIn(4)) {
    change.refusal = "Filter aborted without error condition";
  } else {
    expectCopy(change, copy, of);
  }
  const bool isAborted = change.refusal.has_value();
  change.act = [copy, isAborted](Report& r) {
    return r.filterFileVariation(copy.name, copy.level, [&](std::ifstream&, std::ofstream& out) {
      out << copy.content;
      return !isAborted;
    });
  };
  return change;
}

Change purge(const Ingredients& of) {
  Change change = begin("purgeReportTemporaryFiles", of);
  change.act = [](Report& r) { return r.purgeReportTemporaryFiles(); };
  return change;
}

// What is there more than once is more frequent.
constexpr std::array kChanges{description,
                              description,
                              touch,
                              pid,
                              processName,
                              libraries,
                              consent,
                              consent,
                              maxConsent,
                              mark,
                              createProperty,
                              createProperty,
                              createProperty,
                              createProperty,
                              addTag,
                              removeProperty,
                              addVariation,
                              addVariation,
                              addVariation,
                              addVariation,
                              removeVariation,
                              applyPolicy,
                              copyFile,
                              copyFile,
                              copyFile,
                              moveTemporaryFile,
                              moveTemporaryFile,
                              filterFile,
                              filterFile,
                              purge};

}  // namespace

Change makeUpProperty(const Ingredients& of) {
  return createProperty(of);
}

Change makeUpChange(const Ingredients& of) {
  return of.chance.of(kChanges)(of);
}

}  // namespace KELP::Test::Soak
