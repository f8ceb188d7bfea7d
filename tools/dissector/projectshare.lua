-- Messages of Project Share for the network analyser: stations that share a projects directory tell
-- each other of changes in UDP datagrams, fields of bytes each followed by the byte AC.
--
-- Filters: projectshare, projectshare.type == 2, projectshare.project == "P0001",
-- projectshare.source == "ANNA", projectshare.malformed, ...

local PORT = 27015
local SEPARATOR = "\xAC"

local proto = Proto("projectshare", "Project Share")

-- For each type its name, what stands behind the head as it is written, from how many of these fields
-- on stations do what it is for, and what they do with fewer than all. Compared with the stations'
-- own table by a test.
local LAYOUTS = {
  [1] = { name = "EditModification", fields = { "cookie", "modification" }, acted = 2,
          fewer = 'stations report "false" (NetMessage line 149) and read an empty modification, which' ..
          ' changes nothing' },
  [2] = { name = "EditSaved", fields = { "cookie" }, acted = 1 },
  [3] = { name = "EditDeleted", fields = { "cookie" }, acted = 1 },
  [4] = { name = "ProjdbRecChange", fields = { "cookie" }, acted = 1 },
  [5] = { name = "PermissionsChange", fields = { "cookie", "data" }, acted = 1,
          fewer = 'stations report "false" (NetMessage line 142) and take empty permissions' },
  [6] = { name = "RoomChange", fields = { "cookie" }, acted = 1 },
  [7] = { name = "ContainerModification", fields = { "cookie", "container" }, acted = 2,
          fewer = 'stations report "false" (NetMessage line 166) and do nothing' },
  [8] = { name = "AddMaterial", fields = { "data" }, acted = 1 },
  [9] = { name = "RemoveMaterial", fields = { "data" }, acted = 1 },
  [10] = { name = "UserMessage", fields = { "source", "target", "data" }, acted = 3,
          fewer = 'stations read none of them and deliver no words' },
  [11] = { name = "BinTransfer", fields = { "source", "target", "cookie" }, acted = 1,
          fewer = 'stations log what there is of them' },
  [12] = { name = "ClipTransfer", fields = { "source", "target", "cookie" }, acted = 1,
          fewer = 'stations log what there is of them' },
  [13] = { name = "ActionRequest", fields = { "source", "target", "data" }, acted = 3,
          fewer = 'stations read none of them and run no command' },
  [14] = { name = "EditCreated", fields = { "cookie" }, acted = 1 },
  [15] = { name = "FilterModification", fields = { "cookie", "container" }, acted = 1,
          fewer = 'stations report "false" (NetMessage line 166) and read all filters again' },
}

local TYPES = {}
for kind, layout in pairs(LAYOUTS) do TYPES[kind] = layout.name end

local CONTAINER = { [0] = "nothing", "rewritten", "reload now", "destroyed" }

local f = {
  version = ProtoField.string("projectshare.version", "Version"),
  type = ProtoField.int32("projectshare.type", "Type", base.DEC, TYPES),
  type_name = ProtoField.string("projectshare.type_name", "Type name"),
  project = ProtoField.string("projectshare.project", "Project"),
  cookie = ProtoField.string("projectshare.cookie", "Cookie"),
  source = ProtoField.string("projectshare.source", "Source"),
  target = ProtoField.string("projectshare.target", "Target"),
  data = ProtoField.string("projectshare.data", "Data"),
  modification = ProtoField.string("projectshare.modification", "Modification"),
  modification_type = ProtoField.int32("projectshare.modification.type", "Type"),
  modification_start = ProtoField.string("projectshare.modification.start", "Start"),
  modification_end = ProtoField.string("projectshare.modification.end", "End"),
  modification_subject = ProtoField.string("projectshare.modification.subject", "Subject"),
  modification_value = ProtoField.string("projectshare.modification.value", "Value"),
  container = ProtoField.int32("projectshare.container", "Container value", base.DEC, CONTAINER),
  extra = ProtoField.string("projectshare.extra", "Field beyond the type's"),
}
proto.fields = f

local e = {
  malformed = ProtoExpert.new("projectshare.malformed", "Malformed: stations ignore it",
                              expert.group.MALFORMED, expert.severity.ERROR),
  warning = ProtoExpert.new("projectshare.warning", "Stations take this otherwise than it stands",
                            expert.group.PROTOCOL, expert.severity.WARN),
}
proto.experts = e

-- The fields of a datagram, each with its bytes and where they stand. Stations read to the first
-- zero byte; an empty field before a leading separator does not count, nor one after the last.
local function split(buffer)
  local bytes = buffer:raw()
  local zero = bytes:find("\0", 1, true)
  if zero then bytes = bytes:sub(1, zero - 1) end
  local fields, from = {}, 1
  while from <= #bytes do
    local at = bytes:find(SEPARATOR, from, true) or #bytes + 1
    if at > 1 then fields[#fields + 1] = { text = bytes:sub(from, at - 1), from = from - 1 } end
    from = at + 1
  end
  return fields, zero
end

local function range_of(buffer, field)
  return buffer(field.from, #field.text)
end

local function add_text(tree, proto_field, buffer, field)
  if #field.text == 0 then return tree:add(proto_field, buffer(field.from, 0), "") end
  return tree:add_packet_field(proto_field, range_of(buffer, field), ENC_UTF_8)
end

local function number_of(text)
  return tonumber(text:match("^%s*([+-]?%d+)") or "0")
end

local function is_cookie(text)
  return text == "" or text:match("^[PESGMBFV]%x%x%x%x+%-?%x*$") ~= nil
end

local function warn(item, text)
  item:add_proto_expert_info(e.warning, text)
end

local function add_modification(tree, buffer, field)
  local item = add_text(tree, f.modification, buffer, field)
  local parts, from = {}, 1
  for part, at in (field.text .. ";"):gmatch("([^;]*);()") do
    parts[#parts + 1] = { text = part, from = field.from + from - 1 }
    from = at
  end
  if #parts ~= 5 then
    warn(item, "no modification: five parts with ; between them")
    return
  end
  item:add(f.modification_type, range_of(buffer, parts[1]), number_of(parts[1].text))
  add_text(item, f.modification_start, buffer, parts[2])
  add_text(item, f.modification_end, buffer, parts[3])
  add_text(item, f.modification_subject, buffer, parts[4])
  add_text(item, f.modification_value, buffer, parts[5])
end

local function add_container(tree, buffer, field)
  local value = number_of(field.text)
  local item = tree:add(f.container, range_of(buffer, field), value)
  if value < 0 or value > 3 then
    item:add_proto_expert_info(e.malformed, "no container value: 0 to 3")
  elseif not field.text:match("^%d+$") then
    warn(item, "no number; read as " .. value)
  end
end

local function add_field(name, tree, buffer, field)
  if name == "modification" then return add_modification(tree, buffer, field) end
  if name == "container" then return add_container(tree, buffer, field) end
  local item = add_text(tree, f[name], buffer, field)
  if name == "cookie" and not is_cookie(field.text) then warn(item, "no cookie: stations take none") end
end

-- Control characters of a text would move the cursor of a terminal.
local function shown(text)
  return (text:gsub("[%c\x7F-\x9F]", "?"))
end

local function info_of(kind, fields, layout)
  local text = TYPES[kind] or ("type " .. kind)
  for index = 1, #layout.fields do
    local field = fields[3 + index]
    if field then text = text .. "  " .. shown(field.text) end
  end
  return text
end

local function malformed(tree, pinfo, why)
  tree:add_proto_expert_info(e.malformed, why)
  pinfo.cols.info = "Malformed: " .. why
end

-- The fields behind the head; those that are missing and those that are too many are marked.
local function add_layout(kind, tree, buffer, fields, pinfo)
  local layout = LAYOUTS[kind]
  local whole = 3 + #layout.fields
  for index, name in ipairs(layout.fields) do
    if fields[3 + index] then add_field(name, tree, buffer, fields[3 + index]) end
  end
  if #fields < whole then
    local why = "too few fields (" .. #fields .. " of " .. whole .. "): " .. layout.fewer
    if #fields < 3 + layout.acted then return malformed(tree, pinfo, why) end
    warn(tree, why)
  end
  for index = whole + 1, #fields do
    warn(add_text(tree, f.extra, buffer, fields[index]), "a text holds the byte AC, and arrives cut there")
  end
  if layout.fields[3] == "cookie" then warn(tree, "stations read the cookie from the target's field") end
end

function proto.dissector(buffer, pinfo, root)
  if buffer:len() == 0 then return 0 end
  pinfo.cols.protocol = "ProjectShare"
  local fields, zero = split(buffer)
  local tree = root:add(proto, buffer())
  if #fields > 0 then add_text(tree, f.version, buffer, fields[1]) end
  if #fields == 0 or fields[1].from > 0 or fields[1].text ~= "d" then
    malformed(tree, pinfo, "another version than \"d\"")
    return buffer:len()
  end
  local kind = fields[2] and number_of(fields[2].text) or 0
  if fields[2] then
    tree:add(f.type, range_of(buffer, fields[2]), kind)
    tree:add(f.type_name, range_of(buffer, fields[2]), TYPES[kind] or "unknown"):set_generated()
  end
  if fields[3] then
    local project = add_text(tree, f.project, buffer, fields[3])
    if not is_cookie(fields[3].text) then warn(project, "no cookie: stations take none") end
  end
  if zero then warn(tree, "a zero byte: stations read nothing from there on") end
  if #fields < 4 then
    malformed(tree, pinfo, "too few fields (" .. #fields .. ", at least 4)")
  elseif not LAYOUTS[kind] then
    malformed(tree, pinfo, "there is no type " .. kind)
  else
    tree:append_text(", " .. TYPES[kind])
    pinfo.cols.info = info_of(kind, fields, LAYOUTS[kind])
    add_layout(kind, tree, buffer, fields, pinfo)
  end
  return buffer:len()
end

-- On other ports than the stations' usual one, messages are known by how they begin.
local function is_message(buffer, pinfo, root)
  if buffer:len() < 4 or not buffer:raw(0, math.min(buffer:len(), 5)):match("^d\xAC%d%d?\xAC") then
    return false
  end
  proto.dissector(buffer, pinfo, root)
  return true
end

proto.prefs.port = Pref.uint("UDP port", PORT, "The stations' UDP port")

local known_port = PORT
function proto.prefs_changed()
  local ports = DissectorTable.get("udp.port")
  ports:remove(known_port, proto)
  known_port = proto.prefs.port
  ports:add(known_port, proto)
end

DissectorTable.get("udp.port"):add(PORT, proto)
proto:register_heuristic("udp", is_message)
