// The operations of the S3 specification that this system does not provide, apart from the others so that a program
// which has them can put its own in their place.

#include "cloudbackuplib/S3ConnectionSpec.h"
#include "common/exc.h"

namespace cloudbackuplib::backup::platform::s3 {

CS3ConnectionSpec CS3ConnectionSpec::Deserialize(const xml::xml_holder_t&) {
    throw exc::CNotImplExc(
        "static cloudbackuplib::backup::platform::s3::CS3ConnectionSpec "
        "cloudbackuplib::backup::platform::s3::CS3ConnectionSpec::Deserialize(xml::xml_holder_t&)");
}

std::string CS3ConnectionSpec::ToLogStr() const {
    throw exc::CNotImplExc("std::string cloudbackuplib::backup::platform::s3::CS3ConnectionSpec::ToLogStr() const");
}

}  // namespace cloudbackuplib::backup::platform::s3
