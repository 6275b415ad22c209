// The daemon's state as one JSON document (docs/state.md). Texts and paths are bytes: each becomes
// the Unicode character of its number, so that nothing is lost and Latin-1 reads as it is meant.
#pragma once

#include <string>

#include "common/osd/state.h"

// One line without its end. i_state is the renderer's, i_longestInbox its queue's, i_s64Started
// when the daemon began to serve, ms on the monotonic clock; the rest is
// taken from the ledger and the counters. Any thread.
std::string StateDocument(const T_OsdState& i_state, size_t i_longestInbox, SInt64 i_s64Started);

// {"error": i_strWhy} as one line.
std::string ErrorDocument(const std::string& i_strWhy);
