// The operation of the Azure specification that this system does not provide, apart from the others so that a program
// which has it can put its own in its place.

#include <exception>

#include "cloudbackuplib/AzureConnectionSpec.h"
#include "common/exc.h"

namespace cloudbackuplib::backup::platform::azure {

SAzureConnectionSpec SAzureConnectionSpec::Deserialize(const std::string& text) {
    try {
        throw exc::CNotImplExc(
            "static cloudbackuplib::backup::platform::azure::SAzureConnectionSpec "
            "cloudbackuplib::backup::platform::azure::SAzureConnectionSpec::Deserialize(const string&)");
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Failed to deserialize AzureConnSpec from xml string: [%1]", text);
    }
}

}  // namespace cloudbackuplib::backup::platform::azure
