// osdctl's requests: one subcommand each, its options, and the datagram that they ask for. Used
// once per run, by the main thread.
#pragma once

#include "tools/options.h"

// Adds init, deinit, text, hide, delete, calibrate and the picture requests. After the parse io_run,
// which outlives io_app, holds the request of the one that was given; m_pPeer is set by then.
void AddRequests(CLI::App& io_app, T_Run& io_run);
