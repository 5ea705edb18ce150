#include "operations.h"

#include "reports.h"
#include "sampledata.h"
#include "support/namedrow.h"

#include <filesystem>
#include <string>

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;
using Type = Diagnostic::DiagnosticReportContentPropertyTypes;
using Again = Operation::Again;

constexpr int kLevel = 10;

/** The policy drops the upper half of these levels. */
const std::vector<int> kPolicyLevels{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr int kPolicyConsent = 4;
constexpr std::size_t kPolicyProperties = 10;
constexpr std::size_t kPolicyFileSize = 7;

/** Creates reports beside those that are there, and removes them at the end. */
class Create : public Work {
 public:
  Create(const PeerKind& kind, const Amounts& amounts)
      : reports_(sharedReports(kind, amounts.reports)), ids_(randomIds(amounts.times)) {}
  ~Create() override {
    for (std::size_t i = 0; i < next_; ++i) {
      reports_.peer().remove(ids_[i]);
    }
  }
  Create(const Create&) = delete;
  Create& operator=(const Create&) = delete;

  void once() override { reports_.peer().create(ids_.at(next_++)); }

 private:
  const Reports& reports_;
  std::vector<ReportUuid> ids_;
  std::size_t next_ = 0;
};

class Open : public Work {
 public:
  Open(const PeerKind& kind, const Amounts& amounts)
      : reports_(sharedReports(kind, amounts.reports)),
        id_(reports_.ids().at(amounts.reports / 2)) {}

  void once() override { (void)reports_.peer().open(id_, Access::Read); }

 private:
  const Reports& reports_;
  ReportUuid id_;
};

class List : public Work {
 public:
  List(const PeerKind& kind, const Amounts& amounts)
      : reports_(sharedReports(kind, amounts.reports)) {}

  void once() override {
    require(reports_.peer().list() == reports_.ids().size(), "listing all reports");
  }

 private:
  const Reports& reports_;
};

class Remove : public Work {
 public:
  Remove(const PeerKind& kind, const Amounts& amounts) : reports_(kind, amounts.times) {}

  void once() override { reports_.peer().remove(reports_.ids().at(next_++)); }

 private:
  Reports reports_;
  std::size_t next_ = 0;
};

/** Opens a report, changes it and closes it. */
class Change : public Work {
 public:
  Change(const PeerKind& kind, const Amounts& /*amounts*/) : reports_(kind, 1) {}

  void once() override {
    reports_.peer().open(reports_.ids().front(), Access::Write)->setDescription(kDescription);
  }

 private:
  Reports reports_;
};

/** What a program does that has just been started, and ends: as Change, with all that the peer
 * keeps between its operations made anew. */
class Visit : public Work {
 public:
  Visit(const PeerKind& kind, const Amounts& /*amounts*/) : kind_(kind), reports_(kind, 1) {
    reports_.closePeer();
  }

  void once() override {
    const std::unique_ptr<Peer> peer = kind_.make(reports_.root());
    peer->open(reports_.ids().front(), Access::Write)->setDescription(kDescription);
  }

 private:
  PeerKind kind_;
  Reports reports_;
};

/** A report that is held for writing all the time, as by a client that fills it. */
class HeldWork : public Work {
 public:
  explicit HeldWork(const PeerKind& kind)
      : reports_(kind, 1), report_(reports_.peer().open(reports_.ids().front(), Access::Write)) {}

 protected:
  PeerReport& report() { return *report_; }

 private:
  Reports reports_;
  std::unique_ptr<PeerReport> report_;
};

class Set : public HeldWork {
 public:
  Set(const PeerKind& kind, const Amounts& /*amounts*/) : HeldWork(kind) {}

  void once() override { report().setDescription(kDescription); }
};

class Get : public HeldWork {
 public:
  Get(const PeerKind& kind, const Amounts& /*amounts*/) : HeldWork(kind) {
    report().setDescription(kDescription);
    (void)report().getDescription();
  }

  void once() override { size_ += report().getDescription().size(); }

 private:
  std::size_t size_ = 0;
};

/** Works on the last of a report's integer properties. The variation is there before, so that the
 *  contents stay as large as they are. */
class VariationWork : public HeldWork {
 public:
  VariationWork(const PeerKind& kind, const Amounts& amounts)
      : HeldWork(kind), name_(propertyName(amounts.properties - 1)) {
    report().fill(makeContents(Type::INTEGER, amounts.properties, {kLevel}));
  }

 protected:
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
};

class AddVariation : public VariationWork {
 public:
  using VariationWork::VariationWork;

  void once() override { report().addVariation(name(), kLevel, kValue); }
};

class BestVariation : public VariationWork {
 public:
  using VariationWork::VariationWork;

  void once() override { require(report().bestVariation(name()) == kValue, "finding a value"); }
};

/** Copies a file, over the copy before. */
class AddFile : public HeldWork {
 public:
  AddFile(const PeerKind& kind, const Amounts& amounts) : HeldWork(kind) {
    Test::writeFile(source(), std::string(amounts.bytes, 's'));
    report().fill(makeContents(Type::FILE, 1, {}));
    copy();
  }

  void once() override { copy(); }

 private:
  void copy() { report().addFile(propertyName(0), 0, source()); }
  [[nodiscard]] fs::path source() const { return directory_ / "source"; }

  Test::TemporaryDirectory directory_;
};

/** Expects that the policy has dropped the half of the variations. */
void expectHalf(PeerReport& report) {
  require(report.countVariations() == kPolicyProperties * kPolicyLevels.size() / 2,
          "dropping half of the variations");
}

/** The policy on a hundred variations, half of which it drops. */
class PolicyOnValues : public HeldWork {
 public:
  PolicyOnValues(const PeerKind& kind, const Amounts& /*amounts*/) : HeldWork(kind) {
    report().setConsent(kPolicyConsent);
    report().fill(contents_);
  }

  void once() override { report().applyPolicy(); }
  void restore() override {
    expectHalf(report());
    report().fill(contents_);
  }

 private:
  Contents contents_ = makeContents(Type::INTEGER, kPolicyProperties, kPolicyLevels);
};

class PolicyOnFiles : public HeldWork {
 public:
  PolicyOnFiles(const PeerKind& kind, const Amounts& /*amounts*/) : HeldWork(kind) {
    Test::writeFile(source(), std::string(kPolicyFileSize, 's'));
    report().setConsent(kPolicyConsent);
    report().fill(makeContents(Type::FILE, kPolicyProperties, {}));
    addFilesAbove(-1);
  }

  void once() override { report().applyPolicy(); }
  void restore() override {
    expectHalf(report());
    addFilesAbove(kPolicyConsent);
  }

 private:
  [[nodiscard]] fs::path source() const { return directory_ / "source"; }

  void addFilesAbove(int lowest) {
    for (std::size_t i = 0; i < kPolicyProperties; ++i) {
      for (const int level : kPolicyLevels) {
        if (level > lowest) {
          report().addFile(propertyName(i), level, source());
        }
      }
    }
  }

  Test::TemporaryDirectory directory_;
};

template <typename AnyWork>
std::unique_ptr<Work> prepare(const PeerKind& kind, const Amounts& amounts) {
  return std::make_unique<AnyWork>(kind, amounts);
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> kOperations{
      {"create", Again::UsesUp, prepare<Create>},
      {"open", Again::Always, prepare<Open>},
      {"change", Again::Always, prepare<Change>},
      {"visit", Again::Always, prepare<Visit>},
      {"set", Again::Always, prepare<Set>},
      {"get", Again::Always, prepare<Get>},
      {"variation_add", Again::Always, prepare<AddVariation>},
      {"variation_best", Again::Always, prepare<BestVariation>},
      {"file_add", Again::Always, prepare<AddFile>},
      {"policy_values", Again::Restored, prepare<PolicyOnValues>},
      {"policy_files", Again::Restored, prepare<PolicyOnFiles>},
      {"list", Again::Always, prepare<List>},
      {"remove", Again::UsesUp, prepare<Remove>},
  };
  return kOperations;
}

const Operation& operation(const std::string& name) {
  return Test::rowNamed(operations(), name);
}

}  // namespace KELP::Bench
