#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/meta/MetaState.h"
#include "agent/model/Entry.h"

namespace agent {

/// What a restore of a storage does, in which order. Made once from the state, then only read.
///
/// Each chunk is wanted once, in stream order; beside it stands what of it goes into which file. Files of the same
/// content as an earlier one are copied from it.
struct SRestorePlan {
    struct SFile {
        std::string path;
        SEntry entry;
        /// How many pieces are still to come; 0 for an empty file and a copy.
        std::size_t pieces = 0;
    };
    struct SPiece {
        std::size_t file;
        std::uint64_t fileOffset;
        std::uint32_t chunkOffset;
        std::uint32_t length;
    };
    struct SWanted {
        SChunk chunk;
        std::vector<SPiece> pieces;
    };
    struct SCopy {
        std::size_t file;
        std::size_t original;
    };

    std::vector<std::pair<std::string, SEntry>> folders;  ///< parents first
    std::vector<SFile> files;
    std::vector<SWanted> wanted;
    std::vector<SCopy> copies;
    std::vector<std::pair<std::string, SEntry>> others;  ///< links, fifos, devices
};

[[nodiscard]] SRestorePlan MakeRestorePlan(const CMetaState& state);

}  // namespace agent
