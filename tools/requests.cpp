#include "tools/requests.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "common/osd/disp_record.h"
#include "tools/picture_requests.h"

namespace {

// What the daemon receives at most, less the header and the fixed part of a text's body.
constexpr size_t kMaxTextBytes = kMaxDatagram - kMsgHeaderSize - 24;

const T_OptionText kDevice = {"--dev", "N", "the number of a video output", "0"};

void AddInit(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand = AddCommand(
      io_app, "init", "Set up the layer of a video output; what was shown there is drawn again",
      "Examples:\n"
      "  osdctl init                               output 0 on /dev/fb0, 1920x1080\n"
      "  osdctl init --dev 1 --layer 2 --width 1366 --height 768");
  const auto pScreen = std::make_shared<T_MsgOsdScreenInfo>();
  pScreen->m_u32W = 1920;
  pScreen->m_u32H = 1080;
  AddNumber(*pCommand, kDevice, pScreen->m_s32VoDev);
  AddNumber(*pCommand, {"--layer", "N", "a layer 0 to 7, that is /dev/fbN", "0"},
            pScreen->m_s32VideoLayer, 0, 7);
  AddNumber(*pCommand, {"--x", "PX", "the layer's left edge on the output", "0"}, pScreen->m_s32X);
  AddNumber(*pCommand, {"--y", "PX", "the layer's top edge on the output", "0"}, pScreen->m_s32Y);
  AddNumber(*pCommand, {"--width", "PX", "a width from 1", "1920"}, pScreen->m_u32W, 1);
  AddNumber(*pCommand, {"--height", "PX", "a height from 1", "1080"}, pScreen->m_u32H, 1);
  pCommand->callback([&io_run, pScreen] {
    io_run.m_strWhat = "init of output " + std::to_string(pScreen->m_s32VoDev) + ": " +
                       std::to_string(pScreen->m_u32W) + "x" + std::to_string(pScreen->m_u32H) +
                       " on layer " + std::to_string(pScreen->m_s32VideoLayer);
    SetRequest(io_run, kMsgOsdInit, *pScreen);
  });
}

void AddDeInit(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand =
      AddCommand(io_app, "deinit",
                 "Give up the layer of a video output; the elements are kept for the next init",
                 "Example:\n  osdctl deinit --dev 1");
  const auto pScreen = std::make_shared<T_MsgOsdDeinit>();
  AddNumber(*pCommand, kDevice, pScreen->m_s32VoDev);
  pCommand->callback([&io_run, pScreen] {
    io_run.m_strWhat = "deinit of output " + std::to_string(pScreen->m_s32VoDev);
    SetRequest(io_run, kMsgOsdDeInit, *pScreen);
  });
}
const std::string kColourTakes = "#AARRGGBB, #RRGGBB or one of ";

struct T_Text {
  T_MsgOsdStringShow m_stRecord;
  std::string m_strText;
};

// The daemon takes over only the fields whose bits are set; the element keeps the others. The
// place travels as a whole.
void AddTextOptions(CLI::App& io_command, T_Text& io_text) {
  T_MsgOsdStringShow& record = io_text.m_stRecord;
  record.m_u16OsdSeq = 0x0101;
  record.m_u8Align = 1;
  io_command
      .add_option("text", io_text.m_strText,
                  "what to write; an element keeps its text when not given")
      ->type_name("TEXT");
  AddParsed(io_command, kOutput, record.m_u16VoutSeq, ParseOutput);
  AddParsed(io_command, {"--id", "ELEMENT", kElementTakes, "1.1"}, record.m_u16OsdSeq,
            ParseElement);
  AddParsed(
      io_command,
      {"--at", "PLACE", "a code 0 to 8 or one of " + PositionNames(), "top-left (with --x or --y)"},
      record.m_u8Align, ParsePosition);
  AddNumber(io_command,
            {"--x", "N", "a distance from the place's edge in 16000ths of the width", "0"},
            record.m_u16X);
  AddNumber(io_command,
            {"--y", "N", "a distance from the place's edge in 9000ths of the height", "0"},
            record.m_u16Y);
  AddNumber(io_command, {"--size", "PX", "a height 1 to 255 in pixels of a screen 3840 wide"},
            record.m_u8FontSize, 1);
  AddParsed(io_command, {"--colour,--color", "COLOUR", kColourTakes + ColourNames()},
            record.m_u32TextColour, ParseColour);
  AddParsed(io_command,
            {"--background", "COLOUR",
             kColourTakes + ColourNames() + " (#00000000 is the daemon's grey)"},
            record.m_u32Background, ParseColour);
  io_command.add_flag("--forever")->description("stay until hidden or deleted, not 10 seconds");
}

UInt32 GivenFields(const CLI::App& i_command) {
  struct T_Row {
    const char* m_pOption;
    UInt32 m_u32Bit;
  };
  static constexpr T_Row kRows[] = {
      {"--at", kMaskPosition},   {"--x", kMaskPosition},        {"--y", kMaskPosition},
      {"--size", kMaskFontSize}, {"--colour", kMaskTextColour}, {"--background", kMaskBackground},
      {"text", kMaskText},       {"--forever", kMaskForever},
  };
  UInt32 u32Fields = 0;
  for (const T_Row& row : kRows)
    if (i_command.count(row.m_pOption) != 0) u32Fields |= row.m_u32Bit;
  return u32Fields;
}

// To the daemon a new element with a size and no colours is transparent: nothing to see. A request
// that brings a text may make a new element, so it names all three or none.
void CompleteLook(T_MsgOsdStringShow& io_record) {
  const UInt32 u32Flag = io_record.m_u32Flag;
  if (!(u32Flag & kMaskText) || !(u32Flag & kMaskFontSize)) return;
  if (!(u32Flag & kMaskTextColour)) io_record.m_u32TextColour = 0xFFFFFFFF;
  io_record.m_u32Flag |= kMaskTextColour | kMaskBackground;
}

void NoteSurprises(const T_Text& i_text, UInt32 i_u32Fields) {
  const auto note = [](const std::string& i_strWords) {
    std::fprintf(stderr, "osdctl: note: %s\n", i_strWords.c_str());
  };
  const std::string& strText = i_text.m_strText;
  if (strText.size() > T_DispRecord::kLineChars)
    note("the text has " + std::to_string(strText.size()) +
         " bytes; the daemon draws the first 64");
  if (std::any_of(strText.begin(), strText.end(), [](char i_c) { return (i_c & 0x80) != 0; }))
    note("the text goes beyond ASCII; the daemon draws each of its bytes as one Latin-1 character");
  if (!(i_u32Fields & kMaskFontSize) && (i_u32Fields & (kMaskTextColour | kMaskBackground)))
    note("colours show on an element that has a size; if this one has none, add --size 32");
}

void AddText(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand =
      AddCommand(io_app, "text",
                 "Show a text, or change one that is shown; it goes after 10 seconds", R"(Examples:
  osdctl text "Hello"                             white, in the centre, for 10 seconds
  osdctl text "Input lost" --id 1.7 --at centre --size 96 --colour red --background black --forever
  osdctl text --id 1.7 --at top-right --x 800 --y 600 --forever     the same text, moved
  osdctl text "On air" --out all --size 64 --colour '#C0FFFF00'     quote the #
  osdctl text -- "-off-"                          -- before a text that begins with -

Elements are told apart by class and number, whatever their output. A new one without a place is in
the centre; one that is shown stays where it is. A text with a size and without colours is white on
the daemon's grey; without a text only what is given changes. Class 2 is for pictures (osdctl
image): a text of it does not time out, is not drawn again by an init, and goes only with
"hide --all" or "delete --all".)");
  const auto pText = std::make_shared<T_Text>();
  AddTextOptions(*pCommand, *pText);
  pCommand->callback([&io_run, pCommand, pText] {
    T_MsgOsdStringShow& record = pText->m_stRecord;
    const std::string& strText = pText->m_strText;
    if (strText.size() > kMaxTextBytes)
      throw CLI::ValidationError("TEXT", "it has " + std::to_string(strText.size()) +
                                             " bytes; a request holds " +
                                             std::to_string(kMaxTextBytes));
    record.m_u32Flag = GivenFields(*pCommand);
    CompleteLook(record);
    NoteSurprises(*pText, record.m_u32Flag);
    record.m_u16StrLen = static_cast<UInt16>(strText.size());
    record.m_pStr = std::make_unique<char[]>(strText.size());
    std::copy(strText.begin(), strText.end(), record.m_pStr.get());
    io_run.m_strWhat =
        "text in " + ElementWords(record.m_u16OsdSeq) + " on " + OutputWords(record.m_u16VoutSeq);
    SetRequest(io_run, kMsgOsdStringShow, record);
  });
}

// Exactly one of --id, --class and --all.
void AddElementChoice(CLI::App& io_command, UInt16& o_u16Element) {
  CLI::App* pGroup = io_command.add_option_group("Elements", "which ones; exactly one of these");
  AddParsed(*pGroup, {"--id", "ELEMENT", kElementTakes}, o_u16Element, ParseElement);
  AddParsed(*pGroup, {"--class", "N", "a class 0 to 254, for every element of it"}, o_u16Element,
            [](const std::string& i_strGiven) {
              auto value = ParseNumber(i_strGiven, 0, kEveryClass - 1);
              if (value) *value = Element(static_cast<UInt8>(*value), kEveryNumber);
              return value;
            });
  pGroup->add_flag_callback(
      "--all", [&o_u16Element] { o_u16Element = kEveryElement; }, "every element");
  pGroup->require_option(1);
}

void AddHide(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand = AddCommand(
      io_app, "hide", "Hide elements; a later text or image with the same id shows them again",
      R"(Examples:
  osdctl hide --id 1.7
  osdctl hide --class 1 --out 1
  osdctl hide --all --out all

--out is the output that the text was sent to: "all" hides what was sent to all, not all there is.
The daemon hides by id or class what is of class 1, 3 or 4; other classes go only with --all.
Pictures of every class, 2 too, are hidden by osdctl image-hide.)");
  const auto pRecord = std::make_shared<T_MsgOsdElemHide>();
  AddElementChoice(*pCommand, pRecord->m_u16OsdSeq);
  AddParsed(*pCommand, kOutput, pRecord->m_u16VoutSeq, ParseOutput);
  pCommand->callback([&io_run, pRecord] {
    io_run.m_strWhat = "hiding of " + ElementWords(pRecord->m_u16OsdSeq) + " on " +
                       OutputWords(pRecord->m_u16VoutSeq);
    SetRequest(io_run, kMsgOsdElemHide, *pRecord);
  });
}

void AddDelete(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand =
      AddCommand(io_app, "delete", "Delete elements, on whatever output they are", R"(Examples:
  osdctl delete --id 0x0107
  osdctl delete --class 3
  osdctl delete --all

Texts and pictures alike. The daemon deletes by id or class what is of class 1, 3, 4 or 5; other
classes go only with --all.)");
  const auto pRecord = std::make_shared<T_MsgOsdElemDel>();
  AddElementChoice(*pCommand, pRecord->m_u16OsdSeq);
  pCommand->callback([&io_run, pRecord] {
    io_run.m_strWhat = "deletion of " + ElementWords(pRecord->m_u16OsdSeq);
    SetRequest(io_run, kMsgOsdElemDel, *pRecord);
  });
}

void AddCalibrate(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand =
      AddCommand(io_app, "calibrate", "Enter the touch calibration mode, or leave it", R"(Examples:
  osdctl calibrate           output 0 is set up in the size of /tmpfile/resolution.cfg
  osdctl calibrate --end     and given up again)");
  const auto pRecord = std::make_shared<T_MsgOsdTouchCalibration>();
  pCommand->add_flag_callback(
      "--end", [pRecord] { pRecord->m_u8CalibrationMode = 1; }, "leave the mode");
  pCommand->callback([&io_run, pRecord] {
    io_run.m_strWhat =
        pRecord->m_u8CalibrationMode == 1 ? "end of the calibration" : "start of the calibration";
    SetRequest(io_run, kMsgOsdTouchCalibration, *pRecord);
  });
}

}  // namespace

void AddRequests(CLI::App& io_app, T_Run& io_run) {
  for (const auto add : {AddInit, AddDeInit, AddText, AddHide, AddDelete, AddCalibrate})
    add(io_app, io_run);
  AddPictureRequests(io_app, io_run);
}
