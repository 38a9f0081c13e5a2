-- SPDX-License-Identifier: MIT
-- Wireshark dissector of the link between SerialPortHandler and its relay service. See README.md.

local relay = Proto("serialrelay", "Serial Port Relay")

local OPEN, CLOSE, DATA = 1, 2, 4
local NUMBERED, NAMED = 1, 2
local OPEN_ALREADY = 3
local FENCE = 0x4645 -- the parameter of an open that is sent behind data, for its answer only
local commands = { [OPEN] = "open", [CLOSE] = "close", [DATA] = "data" }
local forms = { [NUMBERED] = "numbered", [NAMED] = "named" }
local statuses = {
  [0] = "success",
  [2] = "no such port, or not open",
  [OPEN_ALREADY] = "open already",
  [4] = "device missing or not usable",
  [5] = "not closed",
}

local fields = {
  to_service = ProtoField.bool("serialrelay.to_service", "To the service"),
  length = ProtoField.uint16("serialrelay.length", "Length"),
  command = ProtoField.uint8("serialrelay.command", "Command", base.DEC, commands),
  form = ProtoField.uint8("serialrelay.form", "Port form", base.DEC, forms),
  vendor = ProtoField.uint16("serialrelay.vendor", "Vendor id", base.HEX),
  product = ProtoField.uint16("serialrelay.product", "Product id", base.HEX),
  name_length = ProtoField.uint16("serialrelay.name_length", "Name length"),
  name = ProtoField.string("serialrelay.name", "Name"),
  port = ProtoField.string("serialrelay.port", "Port"),
  parameter = ProtoField.uint16("serialrelay.parameter", "Parameter"),
  fence = ProtoField.bool("serialrelay.fence", "Fence"),
  status = ProtoField.uint16("serialrelay.status", "Status", base.DEC, statuses),
  block_count = ProtoField.uint8("serialrelay.block_count", "Block count"),
  block_type = ProtoField.uint8("serialrelay.block.type", "Type"),
  block_length = ProtoField.uint16("serialrelay.block.length", "Data length"),
  block_data = ProtoField.bytes("serialrelay.block.data", "Data"),
  reply_in = ProtoField.framenum("serialrelay.reply_in", "Reply in", base.NONE,
    frametype.RESPONSE),
  request_in = ProtoField.framenum("serialrelay.request_in", "Request in", base.NONE,
    frametype.REQUEST),
  response_time = ProtoField.relative_time("serialrelay.response_time", "Response time"),
}
relay.fields = fields

local malformed = ProtoExpert.new("serialrelay.malformed", "Malformed packet",
  expert.group.MALFORMED, expert.severity.ERROR)
local failed = ProtoExpert.new("serialrelay.failed", "The command failed",
  expert.group.RESPONSE_CODE, expert.severity.NOTE)
local unasked = ProtoExpert.new("serialrelay.unasked", "Reply without a request in this capture",
  expert.group.SEQUENCE, expert.severity.WARN)
relay.experts = { malformed, failed, unasked }

relay.prefs.port = Pref.uint("TCP port", 60004, "The port on which the service listens")

local stream_number = Field.new("tcp.stream")
local waiting   -- by stream: requests without a reply yet, in their order
local requests  -- by place: what is known of a request, once its reply has come
local replies   -- by place: the request that a reply answers
local seen      -- places already matched; pinfo.visited is set in tshark -2 even when they are not
local separator -- between the texts of packets in one segment

function relay.init()
  waiting, requests, replies, seen = {}, {}, {}, {}
end

local function is_to_service(pinfo)
  return pinfo.dst_port == relay.prefs.port
end

-- Reads a packet from its start, and shows what it reads. What `take` gives is nil when the packet
-- is too short; `problem` then says so, and nothing more is taken.
local Reader = {}
Reader.__index = Reader

function Reader.new(tvb, tree)
  return setmetatable({ tvb = tvb, tree = tree, at = 0, problem = nil }, Reader)
end

function Reader:left()
  return self.tvb:len() - self.at
end

function Reader:take(count, what)
  if self.problem then return nil end
  if self:left() < count then
    self.problem = "the packet ends within " .. what
    return nil
  end
  local range = self.tvb(self.at, count)
  self.at = self.at + count
  return range
end

function Reader:number(field, count, what)
  local range = self:take(count, what)
  if not range then return nil end
  self.tree:add(field, range)
  return range:uint()
end

local function read_port(reader)
  local form = reader:number(fields.form, 1, "the port form")
  if form == NUMBERED then
    local vendor = reader:number(fields.vendor, 2, "the vendor id")
    local product = reader:number(fields.product, 2, "the product id")
    return product and string.format("%04x:%04x", vendor, product)
  elseif form == NAMED then
    local length = reader:number(fields.name_length, 2, "the name's length")
    if length == 0 then reader.problem = "the port's name is empty" end
    local range = length and reader:take(length, "the name")
    if not range then return nil end
    local name = range:raw():match("^[^%z]*") -- the service ends a name at its first zero byte
    reader.tree:add(fields.name, range, name)
    return name
  elseif form then
    reader.problem = "there is no port form " .. form
  end
  return nil
end

local function read_blocks(reader)
  local size = 0
  local count = reader:number(fields.block_count, 1, "the block count")
  local outer = reader.tree
  for number = 1, count or 0 do
    if reader.problem then break end
    local first = reader.at
    reader.tree = outer:add(relay, reader.tvb(first, 0), "Block " .. number)
    reader:number(fields.block_type, 1, "a block's type")
    local length = reader:number(fields.block_length, 2, "a block's length")
    local range = length and reader:take(length, "a block's data")
    if range and length > 0 then reader.tree:add(fields.block_data, range) end
    reader.tree:set_len(reader.at - first)
    size = size + (range and length or 0)
  end
  reader.tree = outer
  return size
end

-- Replies come in the order of their requests, and a malformed request is not answered. Requests
-- before the one that is answered were lost, or the capture has not seen their replies.
local function match(place, pinfo, packet)
  local stream = stream_number().value
  local queue = waiting[stream] or {}
  waiting[stream] = queue
  if packet.to_service then
    requests[place] = { command = packet.command, port = packet.port, frame = pinfo.number,
                        time = pinfo.rel_ts, fence = packet.fence }
    queue[#queue + 1] = requests[place]
    return
  end
  for index, request in ipairs(queue) do
    if request.command == packet.command and request.port == packet.port then
      request.reply = pinfo.number
      replies[place] = { request = request, time = pinfo.rel_ts }
      for _ = 1, index do table.remove(queue, 1) end
      return
    end
  end
end

local function show_match(place, tree, packet)
  local request, reply = requests[place], replies[place]
  if packet.to_service then
    if request and request.reply then
      tree:add(fields.reply_in, request.reply):set_generated()
    end
  elseif reply then
    tree:add(fields.request_in, reply.request.frame):set_generated()
    local passed = reply.time - reply.request.time
    local seconds = math.floor(passed)
    local time = NSTime.new(seconds, math.floor((passed - seconds) * 1e9 + 0.5))
    tree:add(fields.response_time, time):set_generated()
  else
    tree:add_proto_expert_info(unasked)
  end
end

local function read_body(reader, packet)
  if packet.command == DATA then
    packet.size = read_blocks(reader)
  elseif not packet.to_service then
    packet.status = reader:number(fields.status, 2, "the status")
  elseif reader:left() > 0 then
    local parameter = reader:number(fields.parameter, 2, "the parameter")
    packet.fence = packet.command == OPEN and parameter == FENCE
  end
  if not reader.problem and reader:left() > 0 then
    reader.problem = "bytes too many: " .. reader:left()
  end
end

local function read_packet(reader, packet)
  local length = reader:number(fields.length, 2, "the length")
  if length == 2 then
    reader.problem = "a length of 2: the service takes it for the end of the link"
    return
  elseif length < 2 then
    reader.problem = "the length does not count itself"
    return
  end
  packet.command = reader:number(fields.command, 1, "the command")
  packet.port = read_port(reader)
  if packet.command and not commands[packet.command] then
    reader.problem = "there is no command " .. packet.command
  end
  if packet.port then
    reader.tree:add(fields.port, packet.port):set_generated()
  end
  if not reader.problem then read_body(reader, packet) end
end

local function summary(packet, problem)
  if problem then return "malformed: " .. problem end
  if packet.command == DATA then
    return string.format("data %s %s: %d bytes", packet.to_service and "for" or "from",
      packet.port, packet.size)
  end
  local text = (packet.fence and "fence" or commands[packet.command]) .. " " .. packet.port
  if packet.to_service then return text end
  return string.format("reply to %s: status %d", text, packet.status)
end

local function show_outcome(tree, packet)
  if packet.fence and packet.status ~= OPEN_ALREADY then
    tree:add_proto_expert_info(failed, "The port was not open: data before the fence were dropped")
  elseif not packet.fence and packet.status ~= 0 then
    tree:add_proto_expert_info(failed)
  end
end

local function dissect_packet(tvb, pinfo, root)
  local packet = { to_service = is_to_service(pinfo) }
  local tree = root:add(relay, tvb())
  tree:add(fields.to_service, packet.to_service):set_generated()
  local reader = Reader.new(tvb, tree)
  read_packet(reader, packet)
  if reader.problem then
    tree:add_proto_expert_info(malformed, "Malformed packet: " .. reader.problem)
  elseif packet.command ~= DATA then
    local place = table.concat({ pinfo.number, tvb:offset(), tvb:len() }, ":")
    if not seen[place] then match(place, pinfo, packet) end
    seen[place] = true
    show_match(place, tree, packet)
    if replies[place] then packet.fence = replies[place].request.fence end
    if packet.fence then tree:add(fields.fence, true):set_generated() end
    if packet.status then show_outcome(tree, packet) end
  end
  local text = summary(packet, reader.problem)
  tree:append_text(": " .. text)
  pinfo.cols.info:append(separator .. text)
  separator = "; "
  return tvb:len()
end

-- As the service counts: lengths of 0 and 1 wrap round.
local function packet_length(tvb, _, offset)
  local length = tvb(offset, 2):uint()
  return length < 2 and length + 65536 or length
end

function relay.dissector(tvb, pinfo, tree)
  pinfo.cols.protocol = "SerialRelay"
  pinfo.cols.info = ""
  separator = ""
  dissect_tcp_pdus(tvb, tree, 2, packet_length, dissect_packet)
  return tvb:len()
end

local table_of_ports = DissectorTable.get("tcp.port")
local registered = relay.prefs.port
table_of_ports:add(registered, relay)

function relay.prefs_changed()
  table_of_ports:remove(registered, relay)
  registered = relay.prefs.port
  table_of_ports:add(registered, relay)
end
