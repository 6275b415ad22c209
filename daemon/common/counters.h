// What has been counted since the start, for whoever asks how the daemon fares. Any thread counts;
// relaxed, since nobody concludes anything from one count about another.
#pragma once

#include <atomic>

#include "framework/types.h"

struct T_Counters {
  using T_Count = std::atomic<UInt32>;  // wraps around

  // By the row of the message's catalogue, the row of the peers' table and the parser's result.
  T_Count m_aRequests[64];
  T_Count m_aPeers[16];
  T_Count m_aRefusals[16];
  T_Count m_replies;
  T_Count m_repliesLost;  // too many waited
  T_Count m_picturesRead;
  T_Count m_picturesCached;  // shown without being read
};

inline T_Counters g_stCounters;

inline void Count(T_Counters::T_Count& io_count) {
  io_count.fetch_add(1, std::memory_order_relaxed);
}
