#include "unit/contents/properties/contentmutators.h"

#include "unit/contents/properties/typefamilies.h"

#include <utility>

namespace KELP::Test {
namespace {

using Result = Report::Result;

constexpr const char* kPropertyFailure =
    "Failed to write updated content property value to report metadata";
constexpr const char* kFileDirectory = "contentfiles/file";

Property& named(Contents& contents, const std::string& name) {
  for (Property& property : contents) {
    if (property.stable_id == name) {
      return property;
    }
  }
  throw std::logic_error("no property " + name);
}

std::vector<std::string> goneWithProperty(Type type) {
  const std::string top = kFileDirectory;
  return type == Type::FILE
             ? std::vector{top, top + "/1", top + "/1/a.txt", top + "/2", top + "/2/a.txt"}
             : std::vector<std::string>();
}

std::vector<std::string> goneWithVariation(Type type) {
  return type == Type::FILE ? std::vector{std::string(kFileDirectory) + "/2/a.txt"}
                            : std::vector<std::string>();
}

ContentMutator creation(const std::string& name, Property made,
                        std::function<Result(Report&)> call) {
  return {"create" + name,
          std::move(call),
          [made = std::move(made)](Contents& contents) { contents.push_back(made); },
          {},
          kPropertyFailure,
          "Report status does not allow creation of new content properties",
          std::nullopt};
}

ContentMutator removal(const std::string& name, const TypeFamily& family,
                       const Refusal& withoutContents, std::function<Result(Report&)> call) {
  return {"remove" + name,
          std::move(call),
          [word = family.word](Contents& contents) {
            std::erase_if(contents, [&](const Property& p) { return p.stable_id == word; });
          },
          goneWithProperty(family.type),
          kPropertyFailure,
          "",
          withoutContents};
}

ContentMutator tagging(const std::string& name, const Tags& added,
                       std::function<Result(Report&)> call) {
  return {name,
          std::move(call),
          [added](Contents& contents) {
            named(contents, "string").tags.insert(added.begin(), added.end());
          },
          {},
          kListFailure,
          "Adding tags to report after collection is completed is not allowed",
          plain("Cannot update content tags on report with no contents")};
}

ContentMutator addition(const std::string& type, Variation added,
                        std::function<Result(Report&)> call) {
  return {"addReport" + type + "Variation",
          std::move(call),
          [added = std::move(added)](Contents& contents) {
            // The property decides which of the values is stored.
            named(contents, "string").variations.push_back(added);
          },
          {},
          kListFailure,
          "",
          Refusal{"Cannot update variations on report with no contents",
                  "Cannot update file variations on report with no contents"}};
}

ContentMutator variationRemoval(const std::string& name, const TypeFamily& family,
                                const Refusal& withoutContents,
                                std::function<Result(Report&)> call) {
  return {"remove" + name,
          std::move(call),
          [word = family.word](Contents& contents) { named(contents, word).variations.pop_back(); },
          goneWithVariation(family.type),
          kListFailure,
          "",
          withoutContents};
}

std::vector<ContentMutator> ofNoType() {
  const TypeFamily& file = typeFamilies().front();
  const auto string = [](const char* value) {
    return variationWith<std::string>(3, &Variation::string, value);
  };
  return {
      creation(
          "ReportContentProperty", {"new", Type::UNKNOWN, "media/type", {"b", "a"}, {}},
          [](Report& r) {
            return r.createReportContentProperty("new", Type::UNKNOWN, "media/type", {"b", "a"});
          }),
      removal("ReportContentProperty", file,
              plain("Cannot remove content properties from report with no contents"),
              [](Report& r) { return r.removeReportContentProperty("file"); }),
      tagging("addTagsToContentProperty", {"b", "a"},
              [](Report& r) {
                return r.addTagsToContentProperty("string", {"b", "a"});
              }),
      tagging("addTagToContentProperty", {"a"},
              [](Report& r) { return r.addTagToContentProperty("string", "a"); }),
      addition(
          "Content", string("any"),
          [=](Report& r) { return r.addReportContentVariation("string", string("any"), false); }),
      addition("String", string("any"),
               [](Report& r) { return r.addReportStringVariation("string", 3, "any", false); }),
      // Of the following, a string property stores no value.
      addition("Integer", string(""),
               [](Report& r) { return r.addReportIntegerVariation("string", 3, 7, false); }),
      addition("Double", string(""),
               [](Report& r) { return r.addReportDoubleVariation("string", 3, 7.5, false); }),
      addition("Boolean", string(""),
               [](Report& r) { return r.addReportBooleanVariation("string", 3, true, false); }),
      variationRemoval(
          "ContentPropertyVariation", file,
          plain("Cannot remove content property variations from report with no contents"),
          [](Report& r) { return r.removeContentPropertyVariation("file", 2); }),
  };
}

std::vector<ContentMutator> ofType(const TypeFamily& family) {
  return {
      creation("Report" + family.name + "Property",
               {"new", family.type, family.mediaType(), {"b", "a"}, {}},
               [&family](Report& r) {
                 return family.create(r, "new", {"b", "a"});
               }),
      removal("Report" + family.name + "Property", family, family.noProperty(family.word),
              [&family](Report& r) { return family.removeProperty(r, family.word); }),
      variationRemoval(family.name + "Variation", family, family.noVariation(family.word, 2),
                       [&family](Report& r) { return family.removeVariation(r, family.word, 2); }),
  };
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ContentMutator& mutator) {
  return out << mutator.name;
}

Contents mutatedContents() {
  Contents contents = oneOfEach({1, 2});
  for (Variation& variation : named(contents, "file").variations) {
    variation.relative_path =
        std::string(kFileDirectory) + '/' + std::to_string(variation.sensitivity_level) + "/a.txt";
  }
  return contents;
}

const std::vector<ContentMutator>& contentMutators() {
  static const std::vector<ContentMutator> all = [] {
    std::vector<ContentMutator> list = ofNoType();
    for (const TypeFamily& family : typeFamilies()) {
      for (ContentMutator& mutator : ofType(family)) {
        list.push_back(std::move(mutator));
      }
    }
    return list;
  }();
  return all;
}

}  // namespace KELP::Test
