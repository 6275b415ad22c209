#include "protocol/trace.h"

#include <tuple>

#include "framework/log.h"

namespace {

// Calls i_line with what the fields of the given indices hand to a format, in that order; without
// indices all fields in wire order.
template <size_t... Indices, class Message, class Line>
void WithTraced(const Message& i_message, const Line& i_line) {
  Message::Fields(
      [&](const auto&... fields) {
        const auto all = std::tie(fields...);
        if constexpr (sizeof...(Indices) == 0)
          std::apply(i_line, std::tuple_cat(AsKind(fields).Traced()...));
        else
          std::apply(i_line, std::tuple_cat(AsKind(std::get<Indices>(all)).Traced()...));
      },
      i_message);
}

void TraceEntries(const T_MsgBody&) {}

void TraceEntries(const T_MsgMppBatchShow& i_message) {
  if (!i_message.Accepted()) return;
  for (UInt32 i = 0; i < i_message.m_u8Num; ++i)
    WithTraced(i_message.m_aEntry[i], [&](auto... values) {
      LOG_INFO("show[%u]: vinSeq<%#x-%#x> pos<%u:%u:%u:%u>", i, values...);
    });
}

#define OSD_MESSAGE(i_id, i_Name, i_Record, i_len, i_pText, i_pFormat, ...)                      \
  Bool Trace##i_Name(const char* i_pModule, const T_MsgParams& i_params) {                       \
    const i_Record* pMessage = i_params.Body<i_Record>().get();                                  \
    if (pMessage == nullptr) return false;                                                       \
    WithTraced<__VA_ARGS__>(*pMessage,                                                           \
                            [&](auto... values) { LOG_INFO(i_pFormat, i_pModule, values...); }); \
    TraceEntries(*pMessage);                                                                     \
    return true;                                                                                 \
  }
#define OSD_UNTRACED_MESSAGE(...)
#include "protocol/messages.def"

Bool TraceNothing(const char*, const T_MsgParams&) { return false; }

// Row by row beside kCatalogue.
constexpr Bool (*kTraces[])(const char*, const T_MsgParams&) = {
#define OSD_MESSAGE(i_id, i_Name, ...) Trace##i_Name,
#define OSD_UNTRACED_MESSAGE(...) TraceNothing,
#define OSD_ERROR_REPLY(...) TraceNothing,
#include "protocol/messages.def"
};

}  // namespace

Bool Trace(const T_CatalogueRow& i_row, const char* i_pModule, const T_MsgParams& i_params) {
  return kTraces[i_row.Index()](i_pModule, i_params);
}
