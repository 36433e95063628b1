#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clients/s3/S3Connection.h"
#include "clients/s3/S3Documents.h"

namespace clients::s3 {

/// One operation of a client on one object or folder: what failures name, and the key.
struct SPlace {
    /// Checks the path by the rules that every client keeps.
    SPlace(std::string operationName, const std::string& givenPath, const std::string& prefix);
    /// The keys of everything under the place begin with this; empty for the root.
    [[nodiscard]] std::string Prefix() const { return key.empty() ? key : key + "/"; }

    std::string operation;
    std::string path;
    std::string key;
};

/// What a store knows of an object.
struct SObjectState {
    std::uint64_t size = 0;
    /// With its quotes, as it came.
    std::string etag;
    std::string storageClass;
    /// The header "x-amz-restore".
    std::string restore;
};

/// Nothing when there is no such object.
[[nodiscard]] std::optional<SObjectState> Head(CS3Connection& connection, const SPlace& place);
/// Throws CObjectNotFoundExc when there is no such object.
[[nodiscard]] SObjectState HeadExc(CS3Connection& connection, const SPlace& place);

/// Reads the whole object, and compares it with the MD5 that the service recorded, where it did.
void ReadWhole(CS3Connection& connection, const SPlace& place, const http::buffer_ptr& buffer);

/// Reads what there is of [offset, offset + size); with `etag`, only of that version.
void ReadRange(CS3Connection& connection, const SPlace& place, std::uint64_t offset, std::uint64_t size,
               const http::buffer_ptr& buffer, const std::string& etag);

/// Calls `take` with each page of the listing of all keys that begin with the prefix.
void ListAll(CS3Connection& connection, const SPlace& place, const std::string& prefix, const std::string& delimiter,
             const std::function<void(const SListing&)>& take);

/// Whether any key begins with the prefix.
[[nodiscard]] bool HasPrefix(CS3Connection& connection, const SPlace& place, const std::string& prefix);

/// One that is not there is no failure.
void DeleteOne(CS3Connection& connection, const SPlace& place, const std::string& key);

/// Deletes keys, as many as there are.
void DeleteKeys(CS3Connection& connection, const SPlace& place, const std::vector<std::string>& keys);

/// Headers of an upload: the digest that the service checks the bytes against.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> BodyHeaders(const http::buffer_ptr& body);

}  // namespace clients::s3
