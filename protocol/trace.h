// The line that CAPIParser::PrintMsg writes about a message, made of its row's format and its field
// list. No state; any thread.
#pragma once

#include "protocol/msg_params.h"

// At INFO, for a batch with one more line per entry; false, and no line, for a message that has no
// format or no record in i_params.
Bool Trace(const T_CatalogueRow& i_row, const char* i_pModule, const T_MsgParams& i_params);
