#include "tools/options.h"

#include "common/osd/disp_record.h"

std::string T_OptionText::Help() const {
  if (m_pDefault == nullptr) return Wrapped(m_szTakes);
  return Wrapped(m_szTakes + "; " + m_pDefault + " when not given");
}

std::string Wrapped(std::string i_szText) {
  constexpr size_t kWidth = 70;
  for (size_t start = 0; i_szText.size() - start > kWidth;) {
    const size_t space = i_szText.rfind(' ', start + kWidth);
    if (space == std::string::npos || space <= start) break;
    i_szText[space] = '\n';
    start = space + 1;
  }
  return i_szText;
}

CLI::App* AddCommand(CLI::App& io_app, const char* i_pName, const char* i_pAbout,
                     const char* i_pExamples) {
  CLI::App* pCommand = io_app.add_subcommand(i_pName, i_pAbout);
  pCommand->footer(std::string(i_pExamples) +
                   "\n\nEvery command also takes the options that osdctl --help tells.");
  return pCommand;
}

std::string OutputWords(UInt16 i_u16Output) {
  if (i_u16Output == T_DispRecord::kAllOutputs) return "all outputs";
  return "output " + std::to_string(i_u16Output);
}

std::string ElementWords(UInt16 i_u16Element) {
  if (i_u16Element == kEveryElement) return "every element";
  const std::string szClass = std::to_string(i_u16Element >> 8);
  const UInt32 u32Number = i_u16Element & 0xFFU;
  if (u32Number == kEveryNumber) return "every element of class " + szClass;
  return "element " + szClass + "." + std::to_string(u32Number);
}
