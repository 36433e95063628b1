#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

void Copy(CContext& context, const std::string& source, const std::string& target) {
    context.Client().CopyFileAsync(source, target)->Wait();
}

void CopyHasTheBytes(CContext& context) {
    for (const std::size_t size : {0UL, 1UL, 100'000UL, 5UL * 1024 * 1024}) {
        const bytes_t bytes = MakeBytes(size, size);
        Upload(context.Client(), "folder/source", bytes);
        Copy(context, "folder/source", "folder/target");
        ExpectObject(context.Client(), "folder/target", bytes);
        ExpectObject(context.Client(), "folder/source", bytes);
    }
    ExpectList(context.Client(), "folder", {"source", "target"});
}

void CopyReplacesTarget(CContext& context) {
    Upload(context.Client(), "target", MakeBytes(1, 1000));
    Upload(context.Client(), "source", MakeBytes(2, 10));
    Copy(context, "source", "target");
    ExpectObject(context.Client(), "target", MakeBytes(2, 10));
}

void CopyCreatesMissingParents(CContext& context) {
    Upload(context.Client(), "source", MakeBytes(1, 10));
    Copy(context, "source", "a/b/target");
    ExpectObject(context.Client(), "a/b/target", MakeBytes(1, 10));
    ExpectList(context.Client(), "a", {"b/"});
}

void CopyOntoItselfChangesNothing(CContext& context) {
    Upload(context.Client(), "folder/object", MakeBytes(1, 1000));
    Copy(context, "folder/object", "folder/object");
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 1000));
    Copy(context, "folder/object", "//folder///object/");
    ExpectObject(context.Client(), "folder/object", MakeBytes(1, 1000));
    ExpectList(context.Client(), "folder", {"object"});
}

void CopyOfMissingLeavesTarget(CContext& context) {
    Upload(context.Client(), "target", MakeBytes(1, 10));
    ExpectNotFound("CopyFile", [&] { Copy(context, "missing", "target"); });
    ExpectObject(context.Client(), "target", MakeBytes(1, 10));
    ExpectNotFound("CopyFile", [&] { Copy(context, "missing", "other"); });
    ExpectNoObject(context.Client(), "other");
    ExpectNotFound("CopyFile", [&] { Copy(context, "missing", "missing"); });
}

void CopyIsIndependent(CContext& context) {
    Upload(context.Client(), "source", MakeBytes(1, 1000));
    Copy(context, "source", "target");
    Upload(context.Client(), "source", MakeBytes(2, 500));
    ExpectObject(context.Client(), "target", MakeBytes(1, 1000));
    context.Client().DeleteFileAsync("source")->Wait();
    ExpectObject(context.Client(), "target", MakeBytes(1, 1000));
    Upload(context.Client(), "source", MakeBytes(3, 100));
    Copy(context, "source", "second");
    Upload(context.Client(), "second", MakeBytes(4, 50));
    ExpectObject(context.Client(), "source", MakeBytes(3, 100));
}

}  // namespace

void AddCopyChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"CopyHasTheBytes", CopyHasTheBytes},
                                    {"CopyReplacesTarget", CopyReplacesTarget},
                                    {"CopyCreatesMissingParents", CopyCreatesMissingParents},
                                    {"CopyOntoItselfChangesNothing", CopyOntoItselfChangesNothing},
                                    {"CopyOfMissingLeavesTarget", CopyOfMissingLeavesTarget},
                                    {"CopyIsIndependent", CopyIsIndependent},
                                });
}

}  // namespace cloudclientlib::conformance
