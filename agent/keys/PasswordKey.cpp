#include "agent/keys/PasswordKey.h"

#include <sodium.h>

#include <algorithm>

#include "common/exc.h"
#include "common/logging.h"

namespace agent {

namespace {

constexpr char saltVersion = 1;
constexpr std::size_t saltSize = 1 + 4 + 4 + 16;
constexpr std::size_t keySize = 32;

/// Argon2id wants 8 KiB at least; beyond the others a record was not made by this program.
constexpr std::uint32_t leastMemoryKib = 8;
constexpr std::uint32_t mostMemoryKib = 4U << 20U;
constexpr std::uint32_t mostPasses = 100;

/// Sixteen times the usual memory, and about ten seconds: nobody asks for more without knowing it.
constexpr std::uint32_t unusualMemoryKib = 1U << 20U;
constexpr std::uint64_t unusualWorkKib = std::uint64_t{16} << 20U;

static_assert(crypto_pwhash_argon2id_SALTBYTES == 16);

void PutNumber(crypto::sec_bytes_t& out, std::uint32_t number) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<char>(number >> shift & 0xFFU));
    }
}

std::uint32_t NumberAt(std::span<const char> bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (unsigned i = 0; i < 4; ++i) {
        number |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    }
    return number;
}

void CheckCost(const SPasswordCost& cost) {
    if (cost.memoryKib < leastMemoryKib || cost.memoryKib > mostMemoryKib || cost.passes == 0 ||
        cost.passes > mostPasses) {
        throw exc::CRuntimeExc(
            "A password cannot cost %1 KiB of memory and %2 passes: %3 to %4 KiB and 1 to %5 passes are possible",
            cost.memoryKib, cost.passes, leastMemoryKib, mostMemoryKib, mostPasses);
    }
}

/// Whoever can write the record says what it costs to open it, and makes this machine pay before anything is proven.
void WarnOfCost(const SPasswordCost& cost) {
    if (cost.memoryKib > unusualMemoryKib || std::uint64_t{cost.memoryKib} * cost.passes > unusualWorkKib) {
        logging::Library().Warn(
            "The key record asks for %1 MiB of memory and %2 passes at each use of the password. If you have not "
            "chosen "
            "that (--key-memory, --key-passes), somebody else has written the record",
            cost.memoryKib >> 10U, cost.passes);
    }
}

}  // namespace

SPasswordSalt SPasswordSalt::CreateNew(const SPasswordCost& cost) {
    CheckCost(cost);
    SPasswordSalt salt;
    salt.cost = cost;
    FillRandom(salt.bytes);
    return salt;
}

crypto::sec_bytes_t SPasswordSalt::ToBytes() const {
    crypto::sec_bytes_t out;
    out.push_back(saltVersion);
    PutNumber(out, cost.memoryKib);
    PutNumber(out, cost.passes);
    out.insert(out.end(), bytes.begin(), bytes.end());
    return out;
}

SPasswordSalt SPasswordSalt::FromBytes(std::span<const char> bytes) {
    if (bytes.size() != saltSize || bytes[0] != saltVersion) {
        throw exc::CRuntimeExc("The key record's salt is none of this program's");
    }
    SPasswordSalt salt;
    salt.cost = {NumberAt(bytes, 1), NumberAt(bytes, 5)};
    CheckCost(salt.cost);
    WarnOfCost(salt.cost);
    std::ranges::copy(bytes.subspan(9), salt.bytes.begin());
    return salt;
}

data_key_ptr KeyOfPassword(const crypto::sec_bytes_t& password, const SPasswordSalt& salt) {
    CheckCost(salt.cost);
    if (sodium_init() < 0) {
        throw exc::CRuntimeExc("libsodium cannot be set up");
    }
    crypto::sec_bytes_t material(keySize);
    const int result =
        crypto_pwhash(reinterpret_cast<unsigned char*>(material.data()), material.size(), password.data(),
                      password.size(), reinterpret_cast<const unsigned char*>(salt.bytes.data()), salt.cost.passes,
                      std::size_t{salt.cost.memoryKib} << 10U, crypto_pwhash_ALG_ARGON2ID13);
    if (result != 0) {
        throw exc::CRuntimeExc("There is not enough memory to make the key of the password: it takes %1 MiB",
                               salt.cost.memoryKib >> 10U);
    }
    return std::make_shared<const CDataKey>(std::move(material));
}

}  // namespace agent
