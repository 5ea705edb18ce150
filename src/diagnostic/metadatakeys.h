#pragma once

#include <diagnostic/metadataproperty.h>

/** Every key that a report's metadata store may hold. None has a default. */
namespace KELP::Diagnostic::MetadataKeys {

using Strings = std::vector<std::string>;
using Contents = std::vector<DiagnosticReportContentProperties>;

// Who reports, written once when a report is created.
inline const MetadataProperty<ReportUuid> kReportId{"report_id", std::nullopt};
inline const MetadataProperty<int> kAppId{"app_id", std::nullopt};
inline const MetadataProperty<int> kBuildId{"build_id", std::nullopt};
inline const MetadataProperty<int> kUserId{"user_id", std::nullopt};
inline const MetadataProperty<std::string> kDeviceId{"device_id", std::nullopt};
inline const MetadataProperty<std::string> kSessionId{"session_id", std::nullopt};
inline const MetadataProperty<int> kReportVersion{"report_version", std::nullopt};

// Times, in seconds since the epoch.
inline const MetadataProperty<long> kCreated{"created", std::nullopt};
inline const MetadataProperty<long> kModified{"modified", std::nullopt};

// Consent levels and stage flags.
inline const MetadataProperty<int> kCurrentConsentLevel{"current_consent_level", std::nullopt};
inline const MetadataProperty<int> kMaxConsentLevel{"max_consent_level", std::nullopt};
inline const MetadataProperty<bool> kReportCreationComplete{"report_creation_complete",
                                                            std::nullopt};
inline const MetadataProperty<bool> kUserInteractionComplete{"user_interaction_complete",
                                                             std::nullopt};
inline const MetadataProperty<bool> kDataCollectionComplete{"data_collection_complete",
                                                            std::nullopt};
inline const MetadataProperty<bool> kDataPolicyApplied{"data_policy_applied", std::nullopt};
inline const MetadataProperty<bool> kUploadComplete{"upload_complete", std::nullopt};

// What the report is about.
inline const MetadataProperty<std::string> kDescription{"description", std::nullopt};
inline const MetadataProperty<int> kPid{"pid", std::nullopt};
inline const MetadataProperty<std::string> kProcessName{"process_name", std::nullopt};
inline const MetadataProperty<Strings> kLoadedLibraries{"loaded_libraries", std::nullopt};
inline const MetadataProperty<Contents> kReportContents{"report_contents", std::nullopt};

}  // namespace KELP::Diagnostic::MetadataKeys
