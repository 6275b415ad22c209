#include "tools/options.h"

std::string T_OptionText::Help() const {
  if (m_pDefault == nullptr) return Wrapped(m_strTakes);
  return Wrapped(m_strTakes + "; " + m_pDefault + " when not given");
}

std::string Wrapped(std::string i_strText) {
  constexpr size_t kWidth = 70;
  for (size_t start = 0; i_strText.size() - start > kWidth;) {
    const size_t space = i_strText.rfind(' ', start + kWidth);
    if (space == std::string::npos || space <= start) break;
    i_strText[space] = '\n';
    start = space + 1;
  }
  return i_strText;
}

CLI::App* AddCommand(CLI::App& io_app, const char* i_pName, const char* i_pAbout,
                     const char* i_pExamples) {
  CLI::App* pCommand = io_app.add_subcommand(i_pName, i_pAbout);
  pCommand->footer(std::string(i_pExamples) +
                   "\n\nEvery command also takes the options that osdctl --help tells.");
  return pCommand;
}

std::string OutputWords(UInt16 i_u16Output) {
  if (i_u16Output == kEveryOutput) return "all outputs";
  return "output " + std::to_string(i_u16Output);
}

std::string ElementWords(UInt16 i_u16Element) {
  if (i_u16Element == kEveryElement) return "every element";
  const std::string strClass = std::to_string(ElementClass(i_u16Element));
  const UInt8 u8Number = ElementNumber(i_u16Element);
  if (u8Number == kEveryNumber) return "every element of class " + strClass;
  return "element " + strClass + "." + std::to_string(u8Number);
}
