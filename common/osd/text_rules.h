// How a request changes the text item that it is about: its first line, or all of them. No state.
#pragma once

#include "common/osd/disp_record.h"

// Whether drawing i_new covers every cell of the stored text. Otherwise that must be erased first.
Bool CoversText(const T_DispRecord& i_new, const T_DispRecord& i_stored, Bool i_bAllLines);

// Takes over the text, if the mask says that the request has one.
void MergeText(const T_DispRecord& i_new, Bool i_bAllLines, T_DispRecord& io_stored);

// Takes over everything but the text, as far as the request's mask says. Source, kind and mask stay
// those of the first request.
void MergeFields(const T_DispRecord& i_new, T_DispRecord& io_stored);
