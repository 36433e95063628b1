#pragma once

#include <vector>

#include "cloudclientlib/conformance/Conformance.h"

/// The checks by subject; each function appends its own.
namespace cloudclientlib::conformance {

using checks_t = std::vector<SCheck>;

void AddArchiveChecks(checks_t& checks);
void AddConcurrencyChecks(checks_t& checks);
void AddCopyChecks(checks_t& checks);
void AddDownloadStreamChecks(checks_t& checks);
void AddFailureChecks(checks_t& checks);
void AddFolderChecks(checks_t& checks);
void AddListingChecks(checks_t& checks);
void AddNameChecks(checks_t& checks);
void AddNameLimitChecks(checks_t& checks);
void AddObjectChecks(checks_t& checks);
void AddPathChecks(checks_t& checks);
void AddQuotaChecks(checks_t& checks);
void AddPartChecks(checks_t& checks);
void AddRangeChecks(checks_t& checks);
void AddScaleChecks(checks_t& checks);
void AddTaskChecks(checks_t& checks);
void AddUploadStreamChecks(checks_t& checks);

}  // namespace cloudclientlib::conformance
