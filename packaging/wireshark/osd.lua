-- Dissector of osdsrv's control protocol for Wireshark and tshark 4. Copy it to the folder of
-- personal Lua plugins (Help, About, Folders), or
--   tshark -X lua_script:osd.lua -i lo -Y osd
-- Filters: osd.id == 0x10000, osd.osd_seq == 0x105, osd.peer == "MainCtl", osd.time > 0.1,
-- osd.not_shown, _ws.expert. What stands between "generated" marks is made by clients/generate.

local osd = Proto("osd", "OSD control protocol")

local MAGIC, HEADER, DAEMON = 0x55667788, 18, 9636
local READABLE = 4097 -- bytes of a datagram that a text may reach to
local MAX_ENTRIES, MAX_EDID, MAX_CHARACTERS = 16, 4073, 64

-- By id: name, required body length, fields. NAME:2 is an unsigned integer of two bytes, :-4 a signed
-- one, :c3 three characters, :t2 bytes behind a length of two bytes, :t2&16 those only with bit 16 of
-- flag, :p4 a path, :e2 the EDID, :b the entries of a batch.
local MESSAGES = {
-- generated: messages
  [0x00000000] = {"Ack", nil, "msg_seq:4 msg_id:4"},
  [0x00000001] = {"ProcessSuccess", nil, "msg_seq:4 msg_id:4"},
  [0x00000002] = {"ProcessFailure", nil, "msg_seq:4 msg_id:4 msg_err_code:4"},
  [0x00000003] = {"ERR_RES_MSG_MAGIC_NUM", nil, "magic:4"},
  [0x00000004] = {"ERR_RES_MSG_VERSION", nil, "version:1 supported:1"},
  [0x00000005] = {"ERR_RES_MSG_TYPE", nil, "type:c3"},
  [0x00000006] = {"ERR_RES_MSG_SEQUENCE", nil, "msg_seq:4 prev_seq:4"},
  [0x00000007] = {"ERR_RES_MSG_ID", nil, "msg_seq:4 msg_id:4"},
  [0x00000008] = {"ERR_RES_MSG_PARAM_LEN", nil, "msg_seq:4 msg_id:4 param_len:2 required_len:2"},
  [0x00010000] = {"OsdStringShow", nil, "vout_seq:2 osd_seq:2 flag:4 align:1 x:2 y:2 font_size:1 text_colour:4 background:4 str:t2&16"},
  [0x00010001] = {"OsdElemHide", nil, "vout_seq:2 osd_seq:2"},
  [0x00010002] = {"OsdElemDel", nil, "vout_seq:2 osd_seq:2"},
  [0x00010003] = {"OsdGuideShow", nil, "osd_out:2 osd_seq:2 path:p4"},
  [0x00010004] = {"OsdTouchCalibration", nil, "calibration_mode:1"},
  [0x00010005] = {"OsdDispImage", nil, "vout_seq:2 osd_seq:2 path:t4 x:2 y:2 width:2 height:2 opacity:2"},
  [0x00010006] = {"OsdCancelImage", nil, "vout_seq:2 osd_seq:2"},
  [0x0001fffe] = {"OsdInit", nil, "vo_dev:-4 video_layer:-4 x:-4 y:-4 w:4 h:4"},
  [0x0001ffff] = {"OsdDeInit", nil, "vo_dev:-4 video_layer:-4 x:-4 y:-4 w:4 h:4"},
  [0x00020000] = {"MppShow", 12, "vout:2 vin:2 x:2 y:2 w:2 h:2"},
  [0x00020001] = {"MppHide", 4, "vout:2 vin:2"},
  [0x00020002] = {"MppBatchShow", nil, "vout:2 num:1 entry:b"},
  [0x00020003] = {"MppFreeze", 4, "vout:2 vin:2"},
  [0x00020004] = {"MppUnfreeze", 4, "vout:2 vin:2"},
  [0x00020005] = {"MppModifyRes", 11, "vout:2 mode:1 width:2 height:2 frame_rate:2 pix_fmt:1 color_depth:1"},
  [0x00020006] = {"MppQueryRes", 2, "vout:2"},
  [0x00020009] = {"MppQueryDispStatus", 2, "vout:2"},
  [0x0002000c] = {"MppSetInputFmt", 12, "vin:2 width:2 height:2 frame_rate:2 scan_mode:4"},
  [0x0002000d] = {"MppRequestMediaChn", 16, "vin:2 vtype:2 width:2 height:2 frame_rate:2 mode:2 aspect_ratio:4"},
  [0x0002000f] = {"MppReleaseMediaChn", 2, "vin:2"},
  [0x00020010] = {"MppAudioPlay", 4, "aout:2 ain:2"},
  [0x00020011] = {"MppSetAudioFmt", 12, "ain:2 sound_info0:2 sound_info1:2 sound_info2:2 sound_info3:4"},
  [0x00020012] = {"MppDispStatusChg", nil, "vout:2 connected:1 edid_presence:1 edid:e2"},
  [0x00020013] = {"MppClearRemainFrame", 4, "vout:2 vin:2"},
  [0x00020014] = {"MppAdjustAudioDelay", 4, "aout:2 delay:2"},
  [0x00020015] = {"MppEncodingControl", 1, "type:1"},
  [0x000f0000] = {"NetfilterSoftApNat", 1, "status:1"},
  [0x70002000] = {"MppQueryResAckExt", 14, "msg_seq:4 vout:2 width:2 height:2 frame_rate:2 pix_fmt:1 color_depth:1"},
  [0x80002000] = {"MppVpssVoParam", 48, "vin:2 switch_:2 con:4 ie:4 sf:4 tf:4 cf:4 ctf:4 sp:4 vo_lum:4 vo_con:4 vo_hue:4 vo_sat:4"},
-- generated end
}

-- generated: entry
local ENTRY = "vin_seq:2 x:2 y:2 w:2 h:2"
-- generated end

local NOTES = {
-- generated: notes
  ["ERR_RES_MSG_MAGIC_NUM.magic"] = "as received",
  ["ERR_RES_MSG_VERSION.version"] = "as received",
  ["ERR_RES_MSG_VERSION.supported"] = "the one that is understood",
  ["ERR_RES_MSG_TYPE.type"] = "as received, not terminated",
  ["ERR_RES_MSG_SEQUENCE.prev_seq"] = "the last one seen from the peer",
  ["ERR_RES_MSG_PARAM_LEN.param_len"] = "as received",
  ["ERR_RES_MSG_PARAM_LEN.required_len"] = "the one that the id requires",
  ["OsdStringShow.x"] = "16000ths of the canvas width",
  ["OsdStringShow.y"] = "9000ths of the canvas height",
  ["OsdStringShow.font_size"] = "px on a screen 3840 px wide",
  ["OsdStringShow.text_colour"] = "0xAARRGGBB",
  ["OsdStringShow.background"] = "0xAARRGGBB",
  ["OsdDispImage.x"] = "16000ths of the canvas width",
  ["OsdDispImage.y"] = "9000ths of the canvas height",
  ["OsdDispImage.width"] = "16000ths of the canvas width",
  ["OsdDispImage.height"] = "9000ths of the canvas height",
  ["OsdDispImage.opacity"] = "0 to 255",
  ["OsdInit.x"] = "px",
  ["OsdInit.y"] = "px",
  ["OsdInit.w"] = "px",
  ["OsdInit.h"] = "px",
  ["OsdDeInit.x"] = "px",
  ["OsdDeInit.y"] = "px",
  ["OsdDeInit.w"] = "px",
  ["OsdDeInit.h"] = "px",
  ["MppAdjustAudioDelay.delay"] = "ms",
-- generated end
}

-- What the daemon refuses, by its result code.
local RESULTS = {
-- generated: results
  [1] = {"head_len", "datagram shorter than the header"},
  [2] = {"magic", "magic is not 0x55667788"},
  [3] = {"version", "version is not 0"},
  [4] = {"type", "type is none of 'CMD', 'EVT', 'RES'"},
  [5] = {"sequence", "repeats the peer's last sequence number"},
  [6] = {"id", "unknown message id"},
  [7] = {"param_len", "body length is not the one that the id requires"},
  [8] = {"body", "the body cannot be decoded"},
  [9] = {"port", "the remote port has no sequence slot"},
-- generated end
}

local PEERS = {
-- generated: peers
  [9634] = {name = "Test", slot = true, always = 0},
  [9635] = {name = "MainCtl", slot = true, always = 0},
  [9636] = {name = "Osd", slot = true, always = 0},
  [9637] = {name = "Mpp", slot = true, always = 0},
  [9638] = {name = "Upgrade", slot = false, always = 0},
  [9639] = {name = "UsbCam", slot = true, always = 0},
  [9640] = {name = "HdmiIn", slot = true, always = 1},
  [9641] = {name = "Ipav", slot = true, always = 0},
  [9642] = {name = "Airplay", slot = true, always = 1},
  [9643] = {name = "Miracast", slot = true, always = 1},
  [9644] = {name = "ZtCast", slot = true, always = 1},
  [9645] = {name = "VkDongle", slot = true, always = 1},
  [9646] = {name = "Unknown", slot = false, always = 0},
  [9647] = {name = "ZtDongle", slot = true, always = 1},
  [9648] = {name = "HIDTrans", slot = true, always = 0},
-- generated end
}

local MESSAGE_NAMES = {}
for id, row in pairs(MESSAGES) do MESSAGE_NAMES[id] = row[1] end

local VALUES = {
-- generated: names
  pix_fmt = {[0] = "YUV444", [1] = "RGB444", [2] = "YUV422", [3] = "YUV420"},
  color_depth = {[0] = "24bit", [1] = "30bit", [2] = "36bit"},
-- generated end
  align = {[0] = "centre", "top left", "top centre", "top right", "bottom left", "bottom centre",
    "bottom right", "middle left", "middle right"},
  calibration_mode = {[0] = "init from resolution.cfg", "deinit"},
  msg_id = MESSAGE_NAMES,
}
local HEX = {ain = true, background = true, flag = true, magic = true, msg_err_code = true, msg_id = true,
  osd_out = true, osd_seq = true, text_colour = true, vin = true, vin_seq = true, vout_seq = true}

-- Fields and warnings.

local header = {
  magic = ProtoField.uint32("osd.magic", "magic", base.HEX),
  version = ProtoField.uint8("osd.version", "version"),
  type = ProtoField.string("osd.type", "type"),
  seq = ProtoField.uint32("osd.seq", "seq"),
  id = ProtoField.uint32("osd.id", "id", base.HEX, MESSAGE_NAMES),
  param_len = ProtoField.uint16("osd.param_len", "param_len", base.UNIT_STRING, {" bytes"}),
  peer = ProtoField.string("osd.peer", "peer"),
  response_in = ProtoField.framenum("osd.response_in", "Response in", base.NONE, frametype.RESPONSE),
  request_in = ProtoField.framenum("osd.request_in", "Request in", base.NONE, frametype.REQUEST),
  time = ProtoField.relative_time("osd.time", "Time since the request"),
}
local fields, flags = {}, {}
for name, field in pairs(header) do fields[name] = field end
for bit, name in pairs({"position", "font_size", [4] = "text_colour", [8] = "background", [16] = "text",
  [32] = "forever"}) do
  flags[bit] = ProtoField.bool("osd.flag." .. name, name, 32, nil, bit)
  fields["flag." .. name] = flags[bit]
end

local function new_field(abbreviation, name, word)
  if word.kind == "e" then return ProtoField.bytes(abbreviation, name) end
  if word.kind ~= "" then return ProtoField.string(abbreviation, name) end
  local bits = HEX[name] and 8 * word.width or 32 -- the same for all messages
  local make = word.signed and ProtoField.int32 or ProtoField["uint" .. bits]
  return make(abbreviation, name, HEX[name] and base.HEX or base.DEC, VALUES[name])
end

-- The words of a message's fields. Messages share the field osd.NAME; one that is signed, or named
-- like a field of the header, has osd.MESSAGE.NAME.
local function words_of(message, spec)
  local words = {}
  for name, kind, width, bit in spec:gmatch("([%w_]+):(%a?)(%-?%d*)&?(%d*)") do
    local word = {name = name, kind = kind, width = math.abs(tonumber(width) or 0),
      signed = width:sub(1, 1) == "-", bit = tonumber(bit), note = NOTES[message .. "." .. name]}
    local key = (word.signed or header[name]) and message:lower() .. "." .. name or name
    fields[key] = fields[key] or new_field("osd." .. key, name, word)
    word.field = fields[key]
    if kind:find("[tpe]") then
      fields[name .. "_len"] = fields[name .. "_len"] or ProtoField.uint32("osd." .. name .. "_len", name .. "_len")
      word.length = {name = name .. "_len", kind = "", width = word.width, field = fields[name .. "_len"]}
    end
    table.insert(words, word)
  end
  return words
end
for _, row in pairs(MESSAGES) do row.words = words_of(row[1], row[3]) end
local entry_words = words_of("MppBatchShow.entry", ENTRY)

local experts = {}
local function new_expert(name, words, severity)
  experts[name] = ProtoExpert.new("osd." .. name, words, expert.group.PROTOCOL, severity)
end
for result, row in pairs(RESULTS) do
  new_expert("bad_" .. row[1], "The daemon refuses this: " .. row[2], expert.severity.ERROR)
end
new_expert("refused", "The daemon refused a datagram", expert.severity.WARN)
new_expert("not_shown", "Acknowledged, but nothing is to be seen", expert.severity.WARN)
new_expert("no_effect", "Acknowledged, but not carried out", expert.severity.WARN)
new_expert("cut", "The text is cut off", expert.severity.NOTE)
new_expert("missing", "Bytes that did not arrive read as 0", expert.severity.NOTE)
new_expert("restarted", "The daemon's numbers start anew: it has restarted", expert.severity.NOTE)

for _, field in pairs(fields) do table.insert(osd.fields, field) end
for _, warning in pairs(experts) do table.insert(osd.experts, warning) end

-- The conversation, as it is seen when the frames are read for the first time.

local last_seq, pending, facts, daemon_seq

function osd.init()
  last_seq = {}    -- by the peer's port: the number that the daemon has noted
  pending = {}     -- requests without a reply, by the peer's port and what a reply says of them
  facts = {}       -- by frame: result, restarted, request and its time, response
  daemon_seq = nil -- the last number that the daemon sent
end

-- What the daemon makes of a good header's number; it notes the number.
local function check_seq(port, seq)
  local peer = PEERS[port]
  if not (peer and peer.slot) then return 9 end
  if seq == (last_seq[port] or 0) and seq ~= peer.always then return 5 end
  last_seq[port] = seq
end

-- How replies of each kind name their request; those about a broken header tell what was broken.
local function reply_key(port, id, values)
  local named = {[3] = values.magic, [4] = values.version, [5] = values.type}
  return port .. (named[id] and ":" .. id .. ":" .. named[id] or ":" .. tostring(values.msg_seq))
end
local function request_key(port, result, head)
  local named = {[2] = "3:" .. head.magic, [3] = "4:" .. head.version, [4] = "5:" .. head.type}
  return port .. ":" .. (named[result] or head.seq)
end

local function learn_request(pinfo, head, result)
  if not result then result = check_seq(pinfo.src_port, head.seq) end
  facts[pinfo.number] = {result = result}
  pending[request_key(pinfo.src_port, result, head)] = {frame = pinfo.number, time = pinfo.rel_ts}
end

local function learn_from_daemon(pinfo, head, values)
  local fact = {}
  facts[pinfo.number] = fact
  local step = daemon_seq and (head.seq - daemon_seq) % 2 ^ 32 or 1
  if step == 0 or step >= 2 ^ 31 then
    fact.restarted, last_seq = true, {}
  end
  daemon_seq = head.seq
  if head.type ~= "RES" or head.id > 8 then return end
  local key = reply_key(pinfo.dst_port, head.id, values)
  local request = pending[key]
  if not request then return end
  pending[key] = nil
  fact.request, fact.time = request.frame, pinfo.rel_ts - request.time
  facts[request.frame].response = pinfo.number
end

-- Bodies; without operators on bits, which Lua 5.2 lacks.

local function has_bit(value, bit) return math.floor(value / bit) % 2 == 1 end

-- A datagram and how far it has been read. Nothing of it is touched that was not captured.
local function take(reader, count)
  local there = math.max(0, math.min(count, reader.tvb:len() - reader.at))
  local range = reader.tvb(reader.at <= reader.tvb:len() and reader.at or reader.tvb:len(), there)
  if reader.at + count > reader.tvb:reported_len() then reader.missing = true end
  reader.at = reader.at + count
  return range, there
end

local function output(value) return value % 256 == 255 and "every output" or "output " .. value % 256 end
local function halves(value) return string.format("%#x-%#x", math.floor(value / 256), value % 256) end
local function element(value)
  if value == 0xffff then return "every element" end
  local number = value % 256
  return "class " .. math.floor(value / 256) .. ", " .. (number == 255 and "every number" or "number " .. number)
end
local EXPLAIN = {vout_seq = output, osd_out = output, osd_seq = element, vin = halves, vin_seq = halves, ain = halves}

local function add_int(reader, tree, word, values)
  local range, there = take(reader, word.width)
  local value = there == 0 and 0 or word.signed and there == word.width and range:le_int() or range:le_uint()
  values[word.name] = value
  local item = tree:add(word.field, range, value)
  if word.note then item:append_text(" (" .. word.note .. ")") end
  local explain = EXPLAIN[word.name]
  if explain then item:append_text(" (" .. explain(value) .. ")") end
  if word.name == "flag" then
    for _, bit in ipairs({1, 2, 4, 8, 16, 32}) do item:add(flags[bit], range, value) end
  end
end

local function add_bytes(reader, tree, word, values, count)
  local range, there = take(reader, count)
  if there == 0 then
    values[word.name] = ""
    return
  end
  values[word.name] = range:bytes():raw()
  if word.kind == "e" then tree:add(word.field, range) else tree:add(word.field, range, range:string(ENC_ISO_8859_1)) end
end

local function add_counted(reader, tree, word, values)
  add_int(reader, tree, word.length, values)
  local count = values[word.length.name]
  if word.kind == "p" and count < 2 then count = 0 end
  if word.kind == "e" then count = math.min(count, MAX_EDID) end
  if reader.at + count > READABLE then reader.result = 8 end
  add_bytes(reader, tree, word, values, count)
end

local add_body

local function add_entries(reader, tree, values, param_len)
  if values.num > MAX_ENTRIES or param_len ~= 3 + 10 * values.num then
    reader.result = 8
    return
  end
  for index = 1, values.num do
    local item = tree:add(osd, reader.tvb(math.min(reader.at, reader.tvb:len()), 0), "entry " .. index)
    add_body(reader, item, entry_words, {}, 0)
  end
end

function add_body(reader, tree, words, values, param_len)
  for _, word in ipairs(words) do
    if word.kind == "" then
      add_int(reader, tree, word, values)
    elseif word.kind == "c" then
      add_bytes(reader, tree, word, values, word.width)
    elseif word.kind == "b" then
      add_entries(reader, tree, values, param_len)
    elseif word.kind == "e" then
      if values.edid_presence == 2 then add_counted(reader, tree, word, values) end
    elseif not word.bit or has_bit(values.flag, word.bit) then
      add_counted(reader, tree, word, values)
    end
  end
end

-- What is acknowledged and does not do what it seems to: the warning and its words.

local function is_transparent(colour) return colour < 2 ^ 24 end

local function text_surprise(v)
  local has = function(bit) return has_bit(v.flag, bit) end
  if has(1) and v.align > 8 then return "not_shown", "Position code " .. v.align .. " is not drawn" end
  if has(16) and v.str == "" then return "not_shown", "The text is empty" end
  if has(16) and has(2) and v.font_size > 0 and not has(4) then
    return "not_shown", "A new element with a size and no colour is transparent"
  end
  local ground = has(8) and v.background ~= 0 and is_transparent(v.background)
  if has(2) and v.font_size > 0 and has(4) and is_transparent(v.text_colour) and (ground or not has(8)) then
    return "not_shown", "The colours are transparent"
  end
  if has(16) and #v.str > MAX_CHARACTERS then return "cut", "Only the first 64 characters are drawn" end
end

-- Hides reach the classes 1, 3 and 4, deletes 5, too; everything goes with 0xffff.
local function class_surprise(v, last)
  local class = math.floor(v.osd_seq / 256)
  if v.osd_seq == 0xffff or class == 1 or class >= 3 and class <= last then return end
  return "no_effect", "Elements of class " .. class .. " stay"
end

local SURPRISES = {
  OsdStringShow = text_surprise,
  OsdDispImage = function(v)
    if v.opacity == 0 then return "not_shown", "Opacity 0 is invisible" end
    if v.path == "" then return "not_shown", "There is no path" end
  end,
  OsdElemHide = function(v) return class_surprise(v, 4) end,
  OsdElemDel = function(v) return class_surprise(v, 5) end,
  OsdTouchCalibration = function(v)
    if v.calibration_mode > 1 then return "no_effect", "No such mode" end
  end,
}

-- The dissector.

local function add_header(tvb, tree)
  local head = {magic = tvb(0, 4):uint(), version = tvb(4, 1):uint(), type = tvb(5, 3):bytes():raw(),
    seq = tvb(8, 4):le_uint(), id = tvb(12, 4):le_uint(), param_len = tvb(16, 2):le_uint()}
  tree:add(header.magic, tvb(0, 4))
  tree:add(header.version, tvb(4, 1))
  tree:add(header.type, tvb(5, 3), tvb(5, 3):string(ENC_ISO_8859_1))
  tree:add_le(header.seq, tvb(8, 4))
  tree:add_le(header.id, tvb(12, 4))
  tree:add_le(header.param_len, tvb(16, 2))
  return head
end

-- The daemon's checks of a header but that of the number, in its order.
local function check_header(head)
  local row = MESSAGES[head.id]
  if head.magic ~= MAGIC then return 2 end
  if head.version ~= 0 then return 3 end
  if head.type ~= "CMD" and head.type ~= "EVT" and head.type ~= "RES" then return 4 end
  if not row then return 6 end
  if row[2] and row[2] ~= head.param_len then return 7 end
end

local function warn(tree, pinfo, name, words)
  if not words then return tree:add_proto_expert_info(experts[name]) end
  tree:add_proto_expert_info(experts[name], words)
  pinfo.cols.info:append(" [" .. words .. "]")
end

local function add_links(tree, fact)
  if fact.response then tree:add(header.response_in, fact.response):set_generated() end
  if not fact.request then return end
  tree:add(header.request_in, fact.request):set_generated()
  local seconds = math.floor(fact.time)
  tree:add(header.time, NSTime.new(seconds, math.floor((fact.time - seconds) * 1e9 + 0.5))):set_generated()
end

local function name_of(port) return PEERS[port] and PEERS[port].name or "port " .. port end

function osd.dissector(tvb, pinfo, root)
  local to_daemon, from_daemon = pinfo.dst_port == DAEMON, pinfo.src_port == DAEMON
  local is_ours = tvb:len() >= 4 and tvb(0, 4):uint() == MAGIC
  if not (to_daemon or from_daemon or is_ours) then return 0 end
  pinfo.cols.protocol = "OSD"
  local tree = root:add(osd, tvb())
  local peer = name_of(from_daemon and not to_daemon and pinfo.dst_port or pinfo.src_port)
  tree:add(header.peer, peer):set_generated()
  pinfo.cols.info = peer .. (from_daemon and " < " or " > ")
  if tvb:len() < HEADER then
    pinfo.cols.info:append("datagram of " .. tvb:reported_len() .. " bytes")
    if tvb:reported_len() < HEADER then warn(tree, pinfo, "bad_head_len", RESULTS[1][2]) end
    return tvb:len()
  end

  local head = add_header(tvb, tree)
  local reader, values = {tvb = tvb, at = HEADER, result = check_header(head)}, {}
  local row = MESSAGES[head.id]
  local name = row and row[1] or string.format("id %#x", head.id)
  tree:append_text(", " .. name .. ", seq " .. head.seq)
  pinfo.cols.info:append(name .. " seq " .. head.seq)
  if row and (not reader.result or reader.result == 7) then
    add_body(reader, tree:add(osd, tvb(HEADER), name), row.words, values, head.param_len)
  end

  if not pinfo.visited and to_daemon then learn_request(pinfo, head, reader.result) end
  if not pinfo.visited and from_daemon and not to_daemon then learn_from_daemon(pinfo, head, values) end
  local fact = facts[pinfo.number] or {}
  add_links(tree, fact)
  if fact.restarted then warn(tree, pinfo, "restarted", "the daemon has restarted") end

  local result = to_daemon and fact.result or reader.result
  if result then return warn(tree, pinfo, "bad_" .. RESULTS[result][1], RESULTS[result][2]) or tvb:len() end
  if from_daemon and head.type == "RES" and head.id >= 2 and head.id <= 8 then
    warn(tree, pinfo, "refused", name)
  end
  if values.msg_seq then pinfo.cols.info:append(" of seq " .. values.msg_seq) end
  if values.osd_seq then pinfo.cols.info:append(string.format(" 0x%04x", values.osd_seq)) end
  if reader.missing then warn(tree, pinfo, "missing") end
  local surprise = to_daemon and SURPRISES[name]
  if surprise and surprise(values) then warn(tree, pinfo, surprise(values)) end
  return tvb:len()
end

for port in pairs(PEERS) do DissectorTable.get("udp.port"):add(port, osd) end
