#include "faults/power/filesystemmodel.h"

#include "support/temporarydirectory.h"

#include <algorithm>
#include <stdexcept>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kTop = 0;

const std::map<std::string, EffectKind>& kinds() {
  static const std::map<std::string, EffectKind> all{
      {"create", EffectKind::Create}, {"directory", EffectKind::Directory},
      {"remove", EffectKind::Remove}, {"rename", EffectKind::Rename},
      {"write", EffectKind::Write},   {"truncate", EffectKind::Truncate},
      {"sync", EffectKind::Sync},     {"say", EffectKind::Say},
  };
  return all;
}

void overwrite(std::string& content, std::uint64_t offset, const std::string& data) {
  content.resize(std::max<std::size_t>(content.size(), offset + data.size()), '\0');
  content.replace(offset, data.size(), data);
}

void writeWithFate(std::string& content, const Effect& effect, Fate fate) {
  switch (fate.kind) {
    case Fate::Lost:
      return;
    case Fate::Kept:
      return overwrite(content, effect.offset, effect.data);
    case Fate::Cut:
      return overwrite(content, effect.offset, effect.data.substr(0, fate.size));
    case Fate::Zeroed:
      return overwrite(content, effect.offset, std::string(effect.data.size(), '\0'));
  }
}

}  // namespace

FileTree FileTree::readFrom(const fs::path& directory) {
  FileTree tree;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    tree.entries[entry.path().lexically_relative(directory)] = {
        entry.is_directory(), entry.is_directory() ? "" : readFile(entry.path())};
  }
  return tree;
}

void FileTree::writeTo(const fs::path& directory) const {
  for (const auto& entry : fs::directory_iterator(directory)) {
    fs::remove_all(entry.path());
  }
  for (const auto& [path, entry] : entries) {
    if (entry.isDirectory) {
      fs::create_directory(directory / path);
    } else {
      writeFile(directory / path, entry.content);
    }
  }
}

FileSystemModel::FileSystemModel(const FileTree& tree) {
  for (const auto& [path, entry] : tree.entries) {
    const std::size_t object = add(at(path.parent_path()), path.filename(), entry.isDirectory);
    objects_[object].content = entry.content;
  }
}

std::size_t FileSystemModel::add(std::size_t directory, const std::string& name, bool isDirectory) {
  objects_.push_back({isDirectory, "", {}});
  return objects_.at(directory).names[name] = objects_.size() - 1;
}

std::optional<std::size_t> FileSystemModel::find(const fs::path& path) const {
  std::size_t object = kTop;
  for (const fs::path& name : path) {
    if (name == "." || name.empty()) continue;
    const auto& names = objects_.at(object).names;
    const auto found = names.find(name);
    if (found == names.end()) return std::nullopt;
    object = found->second;
  }
  return object;
}

Effect FileSystemModel::effectOf(const RecordedCall& call, const fs::path& base) {
  Effect effect;
  effect.kind = kinds().at(call.effect);
  effect.offset = call.offset;
  effect.data = call.data;
  if (effect.kind == EffectKind::Say) return effect;
  const fs::path path = call.path.lexically_relative(base);
  if (!effect.isAboutNames()) {
    effect.object = at(path);
    return effect;
  }
  effect.name = path.filename();
  effect.directory = at(path.parent_path());
  if (effect.kind == EffectKind::Rename) {
    const fs::path toPath = call.toPath.lexically_relative(base);
    effect.toName = toPath.filename();
    effect.toDirectory = at(toPath.parent_path());
  }
  if (effect.kind == EffectKind::Create || effect.kind == EffectKind::Directory) {
    effect.object = objects_.size();
    objects_.push_back({effect.kind == EffectKind::Directory, "", {}});
  } else {
    effect.object = at(path);
  }
  return effect;
}

std::vector<Effect> FileSystemModel::perform(const std::vector<RecordedCall>& calls,
                                             const fs::path& base) {
  std::vector<Effect> effects;
  for (const RecordedCall& call : calls) {
    if (call.effect == "nothing") continue;
    effects.push_back(effectOf(call, base));
    apply(effects.back());
  }
  return effects;
}

/** The object that an effect is about; one that was not there before is made without a name. */
FileSystemModel::Object& FileSystemModel::objectFor(const Effect& effect) {
  objects_.resize(std::max(objects_.size(), std::max(effect.object, effect.directory) + 1));
  return objects_[effect.object];
}

void FileSystemModel::apply(const Effect& effect, Fate fate) {
  if (fate.kind == Fate::Lost) return;
  Object& object = objectFor(effect);
  std::map<std::string, std::size_t>& names = objects_[effect.directory].names;
  const auto name = names.find(effect.name);
  switch (effect.kind) {
    case EffectKind::Create:
    case EffectKind::Directory:
      object.isDirectory = effect.kind == EffectKind::Directory;
      names[effect.name] = effect.object;
      break;
    case EffectKind::Rename:
      if (name != names.end() && name->second == effect.object) names.erase(name);
      objects_.at(effect.toDirectory).names[effect.toName] = effect.object;
      break;
    case EffectKind::Remove:
      if (name != names.end() && name->second == effect.object) names.erase(name);
      break;
    case EffectKind::Write:
      writeWithFate(object.content, effect, fate);
      break;
    case EffectKind::Truncate:
      object.content.resize(effect.offset, '\0');
      break;
    case EffectKind::Sync:
    case EffectKind::Say:
      break;
  }
}

void FileSystemModel::list(std::size_t directory, const fs::path& path, FileTree& out) const {
  for (const auto& [name, number] : objects_.at(directory).names) {
    const Object& object = objects_.at(number);
    out.entries[path / name] = {object.isDirectory, object.content};
    if (object.isDirectory) list(number, path / name, out);
  }
}

FileTree FileSystemModel::tree() const {
  FileTree tree;
  list(kTop, "", tree);
  return tree;
}

}  // namespace KELP::Test
