// How a request changes the text item that it is about: its first line, or all of them.
#pragma once

#include "common/osd/disp_record.h"

// Whether the cells of i_new cover those of the stored text; else these must be erased first.
Bool CoversText(const T_DispRecord& i_new, const T_DispRecord& i_stored, Bool i_bAllLines);

// Takes over the text, when there is one.
void MergeText(const T_DispRecord& i_new, Bool i_bAllLines, T_DispRecord& io_stored);

// Takes over everything but the text, as far as the request's mask says. Source, kind and mask stay
// those of the first request.
void MergeFields(const T_DispRecord& i_new, T_DispRecord& io_stored);
