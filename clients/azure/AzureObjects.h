#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clients/azure/AzureConnection.h"
#include "clients/azure/AzureDocuments.h"

namespace clients::azure {

/// One operation of a client on one object or folder: what failures name, and the object's name.
struct SPlace {
    /// Checks the path by the rules that every client keeps, and refuses names that the service would keep as another
    /// or that no listing could tell: with a backslash, control characters or invalid UTF-8, or of blanks alone.
    SPlace(std::string operationName, const std::string& givenPath, const std::string& prefix);
    /// The names of everything under the place begin with this; empty for the root.
    [[nodiscard]] std::string Prefix() const { return name.empty() ? name : name + "/"; }

    std::string operation;
    std::string path;
    std::string name;
    /// Where no object can be.
    bool isRoot;
};

/// What a store knows of an object.
struct SObjectState {
    std::uint64_t size = 0;
    /// With its quotes, as it came.
    std::string etag;
    /// "Hot", "Cool", "Cold", "Archive".
    std::string tier;
    /// "rehydrate-pending-to-..."; empty for none.
    std::string archiveStatus;
    /// "pending", "success", "aborted", "failed"; empty for an object that was not made by a copy.
    std::string copyStatus;
    std::string copyId;
    std::optional<digest::md5_digest_t> md5;
};

/// Nothing when there is no such object.
[[nodiscard]] std::optional<SObjectState> Head(CAzureConnection& connection, const SPlace& place);
/// Throws CObjectNotFoundExc when there is no such object; fails for one that a copy has not filled.
[[nodiscard]] SObjectState HeadExc(CAzureConnection& connection, const SPlace& place);

/// Reads all of an object; fails as corrupt when the bytes are not those whose MD5 was recorded.
void ReadWhole(CAzureConnection& connection, const SPlace& place, const http::buffer_ptr& buffer);

/// Reads what there is of [offset, offset + size); with `etag`, only of that version.
void ReadRange(CAzureConnection& connection, const SPlace& place, std::uint64_t offset, std::uint64_t size,
               const http::buffer_ptr& buffer, const std::string& etag);

/// The bytes are not those whose MD5 was recorded: that may be the way's fault.
[[noreturn]] void ThrowWrongBytes(const SPlace& place);

/// Calls `take` with each page of the listing of all names that begin with the prefix.
void ListAll(CAzureConnection& connection, const SPlace& place, const std::string& prefix, const std::string& delimiter,
             const std::function<void(const SListing&)>& take);

/// Whether any name begins with the prefix.
[[nodiscard]] bool HasPrefix(CAzureConnection& connection, const SPlace& place, const std::string& prefix);

/// One that is not there is no failure; with `etag`, only that version goes.
void DeleteOne(CAzureConnection& connection, const SPlace& place, const std::string& etag);

/// Deletes objects, as many as there are.
void DeleteNames(CAzureConnection& connection, const SPlace& place, const std::vector<std::string>& names);

/// Writes a whole object with one request.
void PutObject(CAzureConnection& connection, const SPlace& place, const http::buffer_ptr& data,
               const headers_t& headers);

}  // namespace clients::azure
