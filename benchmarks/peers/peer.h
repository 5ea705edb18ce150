#pragma once

#include <diagnostic/reportcontentproperties.h>
#include <diagnostic/reportuuid.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Bench {

using Contents = std::vector<Diagnostic::DiagnosticReportContentProperties>;
using Diagnostic::ReportUuid;

/** What a report is opened for. */
enum class Access {
  Read,
  Write,  ///< Nobody else may change the report until it is closed.
};

/** An open report of a Peer. Every operation that fails ends the program. */
class PeerReport {
 public:
  PeerReport() = default;
  PeerReport(const PeerReport&) = delete;
  PeerReport& operator=(const PeerReport&) = delete;
  virtual ~PeerReport() = default;

  /** Writes a text, and the time of the change. */
  virtual void setDescription(const std::string& text) = 0;
  virtual std::string getDescription() = 0;

  /** Makes ready: gives the report these contents in the place of those that it has. */
  virtual void fill(const Contents& contents) = 0;
  /** Makes ready: the level above which the policy drops variations. */
  virtual void setConsent(int level) = 0;
  [[nodiscard]] virtual std::size_t countVariations() = 0;

  /** Sets the value of the integer property @p name at @p level, which has one or not. */
  virtual void addVariation(const std::string& name, int level, int value) = 0;
  /** The value of the highest level that the consent permits. */
  virtual int bestVariation(const std::string& name) = 0;
  /** Copies @p source, as the variation at @p level of the file property @p name, over what was
   *  there. */
  virtual void addFile(const std::string& name, int level, const std::filesystem::path& source) = 0;
  /** Drops the variations above the consent, with their files. */
  virtual void applyPolicy() = 0;
};

/** One way of keeping reports under a root directory: the library's, or what stands beside it. */
class Peer {
 public:
  Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  virtual ~Peer() = default;

  /** Makes a report with the metadata of newReportMetadata(), and closes it. */
  virtual void create(const ReportUuid& id) = 0;
  virtual std::unique_ptr<PeerReport> open(const ReportUuid& id, Access access) = 0;
  /** How many reports there are, which takes finding the identifier of each. */
  virtual std::size_t list() = 0;
  virtual void remove(const ReportUuid& id) = 0;
};

/** A peer by its name. */
struct PeerKind {
  const char* name;
  /** @param root is there. */
  std::unique_ptr<Peer> (*make)(const std::filesystem::path& root);
};

/** Names of those that are compared everywhere. The others vary them. */
constexpr std::array kMainPeers{"library", "bare", "sqlite_each", "sqlite_all"};

/** All of them. */
[[nodiscard]] const std::vector<PeerKind>& peerKinds();
/** Throws when there is none of that name. */
[[nodiscard]] const PeerKind& peerKind(const std::string& name);

}  // namespace KELP::Bench
