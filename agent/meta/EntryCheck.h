#pragma once

#include <string_view>

#include "agent/model/Entry.h"

namespace agent::meta {

/// Throws exc::CRuntimeExc unless the entry holds together by itself; where its segments lead is not looked at.
void CheckEntry(const SEntry& entry);

}  // namespace agent::meta
