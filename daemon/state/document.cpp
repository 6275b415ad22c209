#include "daemon/state/document.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "common/osd/disp_record.h"
#include "daemon/common/counters.h"
#include "framework/clock.h"
#include "platform/platform.h"
#include "protocol/catalogue.h"
#include "protocol/peers.h"

namespace {

using T_Json = nlohmann::ordered_json;

std::string Utf8(const std::string& i_strBytes) {
  std::string strText;
  for (const char c : i_strBytes) {
    const auto u8Code = static_cast<UInt8>(c);
    if (u8Code >= 0x80) strText += static_cast<char>(0xC0 | u8Code >> 6);
    strText += u8Code < 0x80 ? c : static_cast<char>(0x80 | (u8Code & 0x3F));
  }
  return strText;
}

T_Json Output(UInt16 i_u16Output) {
  return i_u16Output == kEveryOutput ? T_Json("every") : T_Json(i_u16Output);
}

std::string Id(UInt16 i_u16OsdSeq) {
  return std::to_string(ElementClass(i_u16OsdSeq)) + "." +
         std::to_string(ElementNumber(i_u16OsdSeq));
}

void PutAskedBy(const T_Asker& i_asker, T_Json& io_object) {
  const Bool bNobody = i_asker.m_u32Entry == 0;
  io_object["peer"] = bNobody ? T_Json() : T_Json(i_asker.m_u32Port);
  io_object["seq"] = bNobody ? T_Json() : T_Json(i_asker.m_u32Seq);
}

const char* Name(EPicture i_ePicture) {
  return i_ePicture == EPicture::kWaiting ? "waiting" : "shown";
}

T_Json Layer(const T_LayerRequest& i_layer) {
  return {{"output", i_layer.m_s32VoDev}, {"layer", i_layer.m_s32Layer},
          {"x", i_layer.m_s32X},          {"y", i_layer.m_s32Y},
          {"width", i_layer.m_u32W},      {"height", i_layer.m_u32H}};
}

T_Json Places(const std::vector<T_OsdState::T_Place>& i_places) {
  T_Json places = T_Json::array();
  for (const auto& [s32Output, rect] : i_places)
    places.push_back({{"output", s32Output},
                      {"x", rect.m_u32X},
                      {"y", rect.m_u32Y},
                      {"width", rect.m_u32W},
                      {"height", rect.m_u32H}});
  return places;
}

T_Json Element(const T_OsdState::T_Element& i_element) {
  T_Json element = {{"id", Id(i_element.m_u16OsdSeq)},
                    {"class", ElementClass(i_element.m_u16OsdSeq)},
                    {"number", ElementNumber(i_element.m_u16OsdSeq)},
                    {"output", Output(i_element.m_u16Output)},
                    {"kind", i_element.m_bIcon ? "picture" : "text"}};
  if (i_element.m_bIcon) {
    element["path"] = Utf8(i_element.m_vecLines[0]);
    element["picture"] = Name(i_element.m_ePicture);
  } else {
    element["lines"] = T_Json::array();
    for (const std::string& strLine : i_element.m_vecLines)
      element["lines"].push_back(Utf8(strLine));
  }
  const Bool bForever = i_element.m_u16SecondsLeft == T_DispRecord::kForever;
  element["seconds_left"] = bForever ? T_Json() : T_Json(i_element.m_u16SecondsLeft);
  element["hidden"] = i_element.m_bHidden;
  element["places"] = Places(i_element.m_vecPlaces);
  element["failed"] =
      i_element.m_strFailed.empty() ? T_Json() : T_Json(Utf8(i_element.m_strFailed));
  PutAskedBy(i_element.m_stAsker, element);
  return element;
}

T_Json Guide(const T_OsdState::T_Guide& i_guide) {
  T_Json guide = {{"output", i_guide.m_s32Output},
                  {"id", Id(i_guide.m_u16OsdSeq)},
                  {"path", i_guide.m_strPath.empty() ? T_Json() : T_Json(Utf8(i_guide.m_strPath))},
                  {"picture", Name(i_guide.m_ePicture)}};
  PutAskedBy(i_guide.m_stAsker, guide);
  return guide;
}

T_Json Request(const T_LedgerEntry& i_entry, SInt64 i_s64Now) {
  constexpr const char* kStates[] = {"waiting", "done", "refused"};
  const T_CatalogueRow* const pRow = FindMessage(i_entry.m_u32MsgId);
  return {{"peer", i_entry.m_stAsker.m_u32Port},
          {"seq", i_entry.m_stAsker.m_u32Seq},
          {"message", pRow != nullptr ? T_Json(pRow->m_pName) : T_Json()},
          {"message_id", i_entry.m_u32MsgId},
          {"state", kStates[static_cast<UInt8>(i_entry.m_eState)]},
          {"why", Utf8(i_entry.m_szWhy)},
          {"age_ms", i_s64Now - i_entry.m_s64Opened}};
}

T_Json Requests(const std::vector<T_LedgerEntry>& i_entries) {
  const SInt64 s64Now = CTime::Milliseconds();
  T_Json requests = T_Json::array();
  for (const T_LedgerEntry& entry : i_entries) requests.push_back(Request(entry, s64Now));
  return requests;
}

// The counts above 0 of i_aCounts by the names of the rows beside them.
template <class Rows, class Name>
T_Json Named(const T_Counters::T_Count* i_pCounts, const Rows& i_rows, Name i_name) {
  T_Json counts = T_Json::object();
  for (const auto& row : i_rows)
    if (const UInt32 u32Count = i_pCounts[&row - i_rows].load(std::memory_order_relaxed))
      counts[i_name(row)] = u32Count;
  return counts;
}

T_Json Counts(size_t i_longestInbox) {
  static_assert(std::size(kCatalogue) <= std::size(g_stCounters.m_aRequests) &&
                std::size(kPeers) <= std::size(g_stCounters.m_aPeers));
  constexpr const char* kRefusals[] = {"none", "head_length", "magic", "version",
                                       "type", "sequence",    "id",    "param_length",
                                       "body", "port"};
  static_assert(std::size(kRefusals) == kCmdPort + 1);
  return {{"requests", Named(g_stCounters.m_aRequests, kCatalogue,
                             [](const T_CatalogueRow& i_row) { return i_row.m_pName; })},
          {"peers", Named(g_stCounters.m_aPeers, kPeers,
                          [](const T_Peer& i_peer) { return std::to_string(i_peer.m_u16Port); })},
          {"refusals",
           Named(g_stCounters.m_aRefusals, kRefusals, [](const char* i_pName) { return i_pName; })},
          {"replies", g_stCounters.m_replies.load()},
          {"replies_lost", g_stCounters.m_repliesLost.load()},
          {"pictures_read", g_stCounters.m_picturesRead.load()},
          {"pictures_cached", g_stCounters.m_picturesCached.load()},
          {"longest_inbox", i_longestInbox}};
}

std::string Line(const T_Json& i_json) {
  return i_json.dump(-1, ' ', false, T_Json::error_handler_t::replace);
}

}  // namespace

std::string StateDocument(const T_OsdState& i_state, size_t i_longestInbox, SInt64 i_s64Started) {
  std::string strRoot = SystemPath("/");
  while (strRoot.size() > 1 && strRoot.back() == '/') strRoot.pop_back();
  T_Json document = {{"version", OSD_VERSION},
                     {"pid", getpid()},
                     {"uptime_ms", CTime::Milliseconds() - i_s64Started},
                     {"root", Utf8(strRoot)},
                     {"outputs", T_Json::array()},
                     {"elements", T_Json::array()},
                     {"guides", T_Json::array()},
                     {"requests", Requests(g_objLedger.Entries())},
                     {"counters", Counts(i_longestInbox)}};
  for (const T_LayerRequest& layer : i_state.m_vecLayers)
    document["outputs"].push_back(Layer(layer));
  for (const auto& element : i_state.m_vecElements)
    document["elements"].push_back(Element(element));
  for (const auto& guide : i_state.m_vecGuides) document["guides"].push_back(Guide(guide));
  return Line(document);
}

std::string ErrorDocument(const std::string& i_strWhy) { return Line({{"error", Utf8(i_strWhy)}}); }
