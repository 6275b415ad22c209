// From a parsed OSD request to a renderer command on the bus. Called by the endpoint's task after
// the request's ACK has been queued; nothing more is told to the peer. A command that the bus
// refuses is lost; the bus and the renderer log it.
#pragma once

#include "endpoint/outgoing.h"
#include "protocol/apiparser.h"

void ProcessMsgOsdInit(const T_MsgOsdScreenInfo& i_request);
void ProcessMsgOsdDeInit(const T_MsgOsdDeinit& i_request);
void ProcessMsgOsdStringShow(const T_MsgOsdStringShow& i_request);
void ProcessMsgOsdDispImage(const T_MsgOsdDispImage& i_request);
void ProcessMsgOsdCancelImage(const T_MsgOsdCancelImage& i_request);
// Hides of images, and of everything, are forwarded to the media process through io_outgoing.
void ProcessMsgOsdElemHide(const T_MsgOsdElemHide& i_request, COutgoing& io_outgoing);
void ProcessMsgOsdElemDel(const T_MsgOsdElemDel& i_request);
void ProcessMsgOsdGuideShow(const T_MsgOsdGuideShow& i_request);
void ProcessMsgOsdTouchCalibration(const T_MsgOsdTouchCalibration& i_request);

// Takes the guide screen away; 0xff is the one valid value. No request leads here.
void HideOsdGuide(UInt32 i_u32Guide);
