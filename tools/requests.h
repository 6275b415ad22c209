// osdctl's requests: one subcommand each, its options, and the datagram that they ask for. Used
// once per run, by the main thread.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "framework/types.h"
#include "protocol/peers.h"

// What one run was asked to do; filled while the command line is parsed.
struct T_Run {
  const T_Peer* m_pPeer = &kPeers[0];  // in whose name
  SInt64 m_s64TimeoutMs = 1000;
  Bool m_bQuiet = false;
  Bool m_bJson = false;
  std::string m_szWhat;             // the request in words
  std::vector<UInt8> m_vecRequest;  // the whole datagram; empty when there is none to send
};

// Adds init, deinit, text, hide, delete, calibrate and the picture requests. After the parse io_run,
// which outlives io_app, holds the request of the one that was given; m_pPeer is set by then.
void AddRequests(CLI::App& io_app, T_Run& io_run);
