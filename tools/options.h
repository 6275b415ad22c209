// What osdctl's subcommands share: their options, how an option's words become a value, and how a
// request is told in words. Used once per run, by the main thread.
#pragma once

#include <CLI/CLI.hpp>
#include <limits>
#include <string>

#include "tools/client.h"
#include "tools/names.h"
#include "tools/requests.h"

struct T_OptionText {
  std::string m_szNames;  // the first is the one that messages use
  const char* m_pType;
  std::string m_szTakes;  // for the help, and for who typed something else
  const char* m_pDefault = nullptr;

  std::string Help() const;
};

inline const T_OptionText kOutput = {"--out", "OUTPUT", "a video output 0 to 254, or all", "0"};
inline constexpr const char* kElementTakes = "an element as class.number (1.5) or number (0x0105)";

// i_szText with line breaks, for an option's help.
std::string Wrapped(std::string i_szText);

// A subcommand whose help ends with i_pExamples.
CLI::App* AddCommand(CLI::App& io_app, const char* i_pName, const char* i_pAbout,
                     const char* i_pExamples);

// "output 1", "all outputs"; "element 1.5", "every element of class 1", "every element".
std::string OutputWords(UInt16 i_u16Output);
std::string ElementWords(UInt16 i_u16Element);

// An option whose words i_parse turns into o_value, which outlives the parsing.
template <class T, class Parse>
void AddParsed(CLI::App& io_app, const T_OptionText& i_text, T& o_value, Parse i_parse) {
  const auto take = [&o_value, i_parse, i_text](const std::string& i_szGiven) {
    const auto value = i_parse(i_szGiven);
    if (!value)
      throw CLI::ValidationError(i_text.m_szNames.substr(0, i_text.m_szNames.find(',')) +
                                     " takes " + i_text.m_szTakes + ", not \"" + i_szGiven + "\"",
                                 CLI::ExitCodes::ValidationError);
    o_value = static_cast<T>(*value);
  };
  io_app.add_option_function<std::string>(i_text.m_szNames, take, i_text.Help())
      ->type_name(i_text.m_pType);
}

template <class T>
void AddNumber(CLI::App& io_app, const T_OptionText& i_text, T& o_value,
               SInt64 i_s64Min = std::numeric_limits<T>::min(),
               SInt64 i_s64Max = std::numeric_limits<T>::max()) {
  AddParsed(io_app, i_text, o_value, [=](const std::string& i_szGiven) {
    return ParseNumber(i_szGiven, i_s64Min, i_s64Max);
  });
}

template <class Message>
void SetRequest(T_Run& io_run, MsgId i_eId, Message& io_message) {
  io_run.m_vecRequest = MakeRequest(*io_run.m_pPeer, i_eId, io_message);
}
