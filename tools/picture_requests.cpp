#include "tools/picture_requests.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "common/osd/disp_record.h"

namespace {

constexpr UInt16 kFirstPicture = Element(kImageClass, 1);
constexpr UInt16 kGuide = Element(kImageClass, 254);

struct T_Image {
  T_MsgOsdDispImage m_stRecord;
  std::string m_strPath;
  T_Pair m_stAt = {};
  T_Pair m_stSize = {};
};

struct T_Guide {
  T_MsgOsdGuideShow m_stRecord;
  std::string m_strPath;
};

// i_strPath as the daemon, which has another working folder, can open it.
std::string PathForDaemon(const std::string& i_strPath) {
  const auto refuse = [](const std::string& i_strWhy) {
    throw CLI::ValidationError("PATH", i_strWhy);
  };
  if (i_strPath.empty()) refuse("it is empty; name a PNG, JPEG or BMP file");
  if (i_strPath.ends_with('/')) refuse("it names a folder; name a PNG, JPEG or BMP file");
  std::error_code failure;
  const std::string strPath = std::filesystem::absolute(i_strPath, failure).string();
  if (failure) refuse("the folder that it begins from is not known: " + failure.message());
  if (strPath.size() > T_DispRecord::kMaxPath)
    refuse("with its folders it has " + std::to_string(strPath.size()) +
           " bytes; the daemon takes " + std::to_string(T_DispRecord::kMaxPath));
  return strPath;
}

void PutPath(const std::string& i_strPath, UInt32& o_u32Length, std::unique_ptr<char[]>& o_pPath) {
  o_u32Length = static_cast<UInt32>(i_strPath.size());
  o_pPath = std::make_unique<char[]>(i_strPath.size() + 1);
  std::copy(i_strPath.begin(), i_strPath.end(), o_pPath.get());
}

void AddElement(CLI::App& io_command, const char* i_pDefault, UInt16& o_u16Element) {
  AddParsed(io_command, {"--seq,--id", "ELEMENT", kElementTakes, i_pDefault}, o_u16Element,
            ParseElement);
}

void AddImageOptions(CLI::App& io_command, T_Image& io_image) {
  T_MsgOsdDispImage& record = io_image.m_stRecord;
  record.m_u16OsdSeq = kFirstPicture;
  record.m_u16Opacity = 255;
  io_command
      .add_option("path", io_image.m_strPath,
                  "a PNG, JPEG or BMP file; a relative one is looked for from the folder\n"
                  "that osdctl runs in")
      ->type_name("PATH")
      ->required();
  AddElement(io_command, "2.1", record.m_u16OsdSeq);
  AddParsed(
      io_command,
      {"--at", "X,Y",
       "the top left corner as X,Y in 16000ths of the width and 9000ths of the height", "0,0"},
      io_image.m_stAt, ParsePair);
  AddParsed(
      io_command,
      {"--size", "W,H",
       "a size as W,H in the same units, where a single 0 keeps the picture's aspect and 0,0 its pixels",
       "0,0"},
      io_image.m_stSize, ParsePair);
  AddNumber(io_command, {"--opacity", "N", "an opacity 0 to 255, beside the picture's own", "255"},
            record.m_u16Opacity, 0, 255);
  AddParsed(io_command, kOutput, record.m_u16VoutSeq, ParseOutput);
}

void AddImage(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand = AddCommand(
      io_app, "image", "Show a picture, or change one that is shown; it stays until it is hidden",
      R"(Examples:
  osdctl image logo.png                                     in the top left corner, pixel by pixel
  osdctl image logo.png --at 14000,400 --size 1600,0        a tenth of the width, as high as it wants
  osdctl image photo.jpg --seq 1.9 --at 4000,2250 --size 8000,4500 --opacity 128
  osdctl image /usr/local/share/icon.png --out all          a file of the daemon's device root

The request says everything: a picture that is shown moves, and takes size, opacity and file from
it. Later elements are drawn over earlier ones. The file is read after the acknowledgement; what is
wrong with it is in the daemon's log. Pictures of class 2 are not drawn again by an init; take
class 1, 3, 4 or 5 for one that should be. Hide it with osdctl image-hide.)");
  const auto pImage = std::make_shared<T_Image>();
  AddImageOptions(*pCommand, *pImage);
  pCommand->callback([&io_run, pImage] {
    T_MsgOsdDispImage& record = pImage->m_stRecord;
    const std::string strPath = PathForDaemon(pImage->m_strPath);
    PutPath(strPath, record.m_u32StrLen, record.m_pPath);
    record.m_u16X = pImage->m_stAt.m_u16First;
    record.m_u16Y = pImage->m_stAt.m_u16Second;
    record.m_u16Width = pImage->m_stSize.m_u16First;
    record.m_u16Height = pImage->m_stSize.m_u16Second;
    io_run.m_strWhat = "picture " + strPath + " in " + ElementWords(record.m_u16OsdSeq) + " on " +
                       OutputWords(record.m_u16VoutSeq);
    SetRequest(io_run, kMsgOsdDispImage, record);
  });
}

void AddImageHide(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand = AddCommand(
      io_app, "image-hide", "Hide pictures of any class, or the guide; texts stay", R"(Examples:
  osdctl image-hide --seq 2.1
  osdctl image-hide --seq 2.254 --out all      the guide that osdctl guide showed
  osdctl image-hide --all --out all            every picture, and the guide

A later osdctl image with the same element shows it again.)");
  const auto pRecord = std::make_shared<T_MsgOsdCancelImage>();
  CLI::App* pGroup = pCommand->add_option_group("Elements", "which ones; exactly one of these");
  AddParsed(*pGroup, {"--seq,--id", "ELEMENT", kElementTakes}, pRecord->m_u16OsdSeq, ParseElement);
  pGroup->add_flag_callback(
      "--all", [pRecord] { pRecord->m_u16OsdSeq = kEveryElement; }, "every picture");
  pGroup->require_option(1);
  AddParsed(*pCommand, kOutput, pRecord->m_u16VoutSeq, ParseOutput);
  pCommand->callback([&io_run, pRecord] {
    const UInt16 u16Element = pRecord->m_u16OsdSeq;
    io_run.m_strWhat =
        "hiding of " +
        (u16Element == kEveryElement ? "every picture"
                                     : "the picture in " + ElementWords(u16Element)) +
        " on " + OutputWords(pRecord->m_u16VoutSeq);
    SetRequest(io_run, kMsgOsdCancelImage, *pRecord);
  });
}

void AddGuide(CLI::App& io_app, T_Run& io_run) {
  CLI::App* pCommand = AddCommand(
      io_app, "guide", "Show a picture full-screen behind all texts and pictures", R"(Examples:
  osdctl guide                                      the daemon's own guide, on all outputs
  osdctl guide welcome.png --out 1
  osdctl image-hide --seq 2.254 --out all           hide it, whichever it was

As large as fits without being distorted, on black; what a text or a picture leaves, it fills.)");
  const auto pGuide = std::make_shared<T_Guide>();
  T_MsgOsdGuideShow& record = pGuide->m_stRecord;
  record.m_u16OsdOut = kEveryOutput;
  record.m_u16OsdSeq = kGuide;
  CLI::Option* pPath =
      pCommand
          ->add_option("path", pGuide->m_strPath,
                       "a PNG, JPEG or BMP file; /usr/local/share/guidescreen.png of the daemon's\n"
                       "device root when not given")
          ->type_name("PATH");
  AddElement(*pCommand, "2.254", record.m_u16OsdSeq);
  AddParsed(*pCommand, {"--out", "OUTPUT", kOutput.m_strTakes, "all"}, record.m_u16OsdOut,
            ParseOutput);
  pCommand->callback([&io_run, pGuide, pPath] {
    T_MsgOsdGuideShow& guide = pGuide->m_stRecord;
    const std::string strPath = pPath->count() != 0 ? PathForDaemon(pGuide->m_strPath) : "";
    if (!strPath.empty()) PutPath(strPath, guide.m_u32PathLen, guide.m_pPath);
    io_run.m_strWhat =
        "guide " + (strPath.empty() ? "" : strPath + " ") + "on " + OutputWords(guide.m_u16OsdOut);
    SetRequest(io_run, kMsgOsdGuideShow, guide);
  });
}

}  // namespace

void AddPictureRequests(CLI::App& io_app, T_Run& io_run) {
  for (const auto add : {AddImage, AddImageHide, AddGuide}) add(io_app, io_run);
}
