// How a request changes the text item that it is about.
#pragma once

#include "common/osd/disp_record.h"

struct T_TextRules {
  // Whether the new version's cells cover those of the stored one; else these are erased first.
  Bool (*m_pCovers)(const T_DispRecord& i_item, const T_DispRecord& i_new);
  // Takes over the text.
  void (*m_pMergeText)(const T_DispRecord& i_new, T_DispRecord& io_item);
};

extern const T_TextRules kFirstLineRules;
extern const T_TextRules kAllLinesRules;

// Takes over everything but the text, as far as the request's mask says. Source, kind and mask stay
// those of the first request.
void MergeFields(const T_DispRecord& i_new, T_DispRecord& io_item);
