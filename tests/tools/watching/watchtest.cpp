#include "tools/watching/watchtest.h"

#include "tools/support/tool.h"

#include <json/reader.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace KELP::Test {

namespace fs = std::filesystem;
using Diagnostic::ReportUuid;

std::size_t watchesOf(pid_t process) {
  std::size_t count = 0;
  std::error_code error;
  const fs::path files = "/proc/" + std::to_string(process) + "/fdinfo";
  for (fs::directory_iterator file(files, error), end; !error && file != end;
       file.increment(error)) {
    std::ifstream in(file->path());
    for (std::string line; std::getline(in, line);) {
      count += line.starts_with("inotify wd:") ? 1U : 0U;
    }
  }
  return count;
}

std::string WatchTest::createClosed(const std::string& id) {
  static_cast<void>(repository_.create(id));
  return id;
}

void WatchTest::describe(const std::string& id, const std::string& text) {
  ReportUuid uuid;
  uuid.parse(id.c_str());
  const auto report = repository_.data().openReport(uuid);
  if (!report || !report->acquireWriteLock(true) || !report->setDescription(text)) {
    throw std::runtime_error("the report was not changed");
  }
}

void WatchTest::start(const std::vector<std::string>& more) {
  std::vector<std::string> command = repository_.arguments({"watch"});
  command.insert(command.begin(), toolPath());
  command.insert(command.end(), more.begin(), more.end());
  tool_ = std::make_unique<ChildProcess>(command);
}

std::string WatchTest::line() {
  const std::optional<std::string> line = tool_->receive();
  if (!line) {
    throw std::runtime_error("no line came");
  }
  return *line;
}

Json::Value WatchTest::event() {
  Json::Value value;
  std::istringstream in(line());
  std::string complaint;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &complaint)) {
    throw std::runtime_error(complaint);
  }
  return value;
}

std::string WatchTest::lineWith(const std::vector<std::string>& parts) {
  for (;;) {
    std::string next = line();
    bool hasAll = true;
    for (const std::string& part : parts) {
      hasAll = hasAll && next.find(part) != std::string::npos;
    }
    if (hasAll) {
      return next;
    }
  }
}

int WatchTest::end(int signal) {
  tool_->signal(signal);
  return tool_->wait();
}

}  // namespace KELP::Test
