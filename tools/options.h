// What osdctl's subcommands share: their options, how an option's words become a value, and how a
// request is told in words. Used once per run, by the main thread.
#pragma once

#include <CLI/CLI.hpp>
#include <limits>
#include <string>
#include <vector>

#include "tools/client.h"
#include "tools/names.h"

// What one run was asked to do; filled while the command line is parsed.
struct T_Run {
  const T_Peer* m_pPeer = &kPeers[0];  // in whose name
  SInt64 m_s64TimeoutMs = 1000;
  Bool m_bQuiet = false;
  Bool m_bJson = false;
  std::string m_strWhat;            // the request in words
  std::vector<UInt8> m_vecRequest;  // the whole datagram; empty when there is none to send
};

struct T_OptionText {
  std::string m_strNames;  // the first is the one that messages use
  const char* m_pType;
  std::string m_strTakes;  // for the help, and for who typed something else
  const char* m_pDefault = nullptr;

  // What the option takes and its default, with line breaks.
  std::string Help() const;
};

inline const T_OptionText kOutput = {"--out", "OUTPUT", "a video output 0 to 254, or all", "0"};
inline constexpr const char* kElementTakes = "an element as class.number (1.5) or number (0x0105)";

// i_strText with line breaks, for an option's help.
std::string Wrapped(std::string i_strText);

// A subcommand whose help ends with i_pExamples.
CLI::App* AddCommand(CLI::App& io_app, const char* i_pName, const char* i_pAbout,
                     const char* i_pExamples);

// "output 1", "all outputs"; "element 1.5", "every element of class 1", "every element".
std::string OutputWords(UInt16 i_u16Output);
std::string ElementWords(UInt16 i_u16Element);

// An option whose words i_parse turns into o_value, which outlives the parsing. i_parse gives an
// optional; without a value the parsing ends with CLI::ValidationError, which says what is taken.
template <class T, class Parse>
void AddParsed(CLI::App& io_app, const T_OptionText& i_text, T& o_value, Parse i_parse) {
  const auto take = [&o_value, i_parse, i_text](const std::string& i_strGiven) {
    const auto value = i_parse(i_strGiven);
    if (!value)
      throw CLI::ValidationError(i_text.m_strNames.substr(0, i_text.m_strNames.find(',')) +
                                     " takes " + i_text.m_strTakes + ", not \"" + i_strGiven + "\"",
                                 CLI::ExitCodes::ValidationError);
    o_value = static_cast<T>(*value);
  };
  io_app.add_option_function<std::string>(i_text.m_strNames, take, i_text.Help())
      ->type_name(i_text.m_pType);
}

// As AddParsed, with the whole number from i_s64Min to i_s64Max.
template <class T>
void AddNumber(CLI::App& io_app, const T_OptionText& i_text, T& o_value,
               SInt64 i_s64Min = std::numeric_limits<T>::min(),
               SInt64 i_s64Max = std::numeric_limits<T>::max()) {
  AddParsed(io_app, i_text, o_value, [=](const std::string& i_strGiven) {
    return ParseNumber(i_strGiven, i_s64Min, i_s64Max);
  });
}

// Makes io_message, whose header is filled in, the datagram that the run sends.
template <class Message>
void SetRequest(T_Run& io_run, MsgId i_eId, Message& io_message) {
  io_run.m_vecRequest = MakeRequest(*io_run.m_pPeer, i_eId, io_message);
}
