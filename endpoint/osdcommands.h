// From a parsed OSD request to a renderer command on the bus. Called by the endpoint's task after
// the request's ACK has been queued; nothing more is told to the peer. Requests stay the caller's:
// what the renderer keeps is copied. A command that the bus refuses is lost, with what it carries;
// the bus and the renderer log it.
#pragma once

#include "endpoint/outgoing.h"
#include "protocol/msg_params.h"

// T_OsdInit and T_OsdDeInit with the request's six values as they are; the renderer checks them.
void ProcessMsgOsdInit(const T_MsgOsdScreenInfo& i_request);
void ProcessMsgOsdDeInit(const T_MsgOsdDeinit& i_request);

// T_OsdTextShow with a display record of what the flags say is given: the output's low 8 bits, the
// first 64 bytes of the text with blanks for NULs, 10 s unless it is for ever. A background of 0
// becomes T_DispRecord::kDefaultBackground.
void ProcessMsgOsdStringShow(const T_MsgOsdStringShow& i_request);

// T_OsdIconShow with a display record, the output's low 8 bits in it. NULs at the path's end are no
// part of it. A path above T_DispRecord::kMaxPath bytes, or with a NUL within, is refused with an
// ERROR line, and nothing is sent.
void ProcessMsgOsdDispImage(const T_MsgOsdDispImage& i_request);

// T_OsdIconHide with all 16 bits of the output.
void ProcessMsgOsdCancelImage(const T_MsgOsdCancelImage& i_request);

// T_OsdTextCancel with the output's low 8 bits. Hides of class 2 and of everything go to the media
// process, too, through io_outgoing. An ERROR line alone for a class above 4.
void ProcessMsgOsdElemHide(const T_MsgOsdElemHide& i_request, COutgoing& io_outgoing);

// T_OsdDelete, whatever the output. For class 2, to which nothing is sent, and for everything a WARN
// line; an ERROR line alone for a class above 5.
void ProcessMsgOsdElemDel(const T_MsgOsdElemDel& i_request);

// T_OsdPicture with the request's values and a copy of the path, which the renderer frees. Refused
// as by ProcessMsgOsdDispImage.
void ProcessMsgOsdGuideShow(const T_MsgOsdGuideShow& i_request);

// Mode 0: T_OsdInit of output 0 on layer 0 in the size, px, of the resolution file; an ERROR line
// alone when it cannot be read. Mode 1: T_OsdDeInit of output 0. Other modes: nothing.
void ProcessMsgOsdTouchCalibration(const T_MsgOsdTouchCalibration& i_request);

// T_OsdIconHide of the guide screen alone, on all outputs. 0xFF is the one valid value; an ERROR line
// alone for another. No request leads here.
void HideOsdGuide(UInt32 i_u32Guide);
