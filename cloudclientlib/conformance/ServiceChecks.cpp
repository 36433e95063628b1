#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

void QuotaIsTold(CContext& context) {
    Upload(context.Client(), "object", MakeBytes(1, 1000));
    const SStorageQuota quota = context.Client().GetStorageQuota();
    Expect(quota.total > 0, "the quota has a total");
    Expect(quota.used <= quota.total, "no more is used than the quota's total");
}

void OnlineObjectIsToldOnline(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    for (const char* form : {"folder/object", "//folder//object/"}) {
        Expect(context.Client().GetArchiveRetrievalStatus(form) == EArchiveRetrievalStatus::online,
               "an object just written is online");
    }
}

void RetrievalOfOnlineObjectSucceeds(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 10));
    using ESpeed = SRetrieveArchiveOptions::ESpeed;
    for (const ESpeed speed : {ESpeed::bulk, ESpeed::standard, ESpeed::expedited}) {
        context.Client().RetrieveArchive("folder/object", {.speed = speed, .days = 3});
    }
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 10));
    Expect(context.Client().GetArchiveRetrievalStatus("folder/object") == EArchiveRetrievalStatus::online,
           "an object that was online stays online");
}

void ArchiveOfMissingIsNotFound(CContext& context) {
    ICloudClient& client = context.Client();
    Upload(client, "folder/object", MakeBytes(1, 10));
    for (const char* path : {"missing", "folder", "folder/missing", "folder/object/below"}) {
        ExpectNotFound("RetrieveArchive", [&] { client.RetrieveArchive(path, {}); });
        ExpectNotFound("GetArchiveRetrievalStatus", [&] { client.GetArchiveRetrievalStatus(path); });
    }
}

}  // namespace

void AddQuotaChecks(checks_t& checks) { checks.push_back({"QuotaIsTold", QuotaIsTold, &SDeviations::quotaIsUnknown}); }

void AddArchiveChecks(checks_t& checks) {
    checks.insert(
        checks.end(),
        {
            {"OnlineObjectIsToldOnline", OnlineObjectIsToldOnline, &SDeviations::archiveIsRefused},
            {"RetrievalOfOnlineObjectSucceeds", RetrievalOfOnlineObjectSucceeds, &SDeviations::archiveIsRefused},
            {"ArchiveOfMissingIsNotFound", ArchiveOfMissingIsNotFound, &SDeviations::archiveIsRefused},
        });
}

}  // namespace cloudclientlib::conformance
