-- SPDX-License-Identifier: MIT
-- Makes a man page of docs/man/NAME.SECTION.md. A code block
--
--     ```{.include file=FILE section="HEADING"}
--     ```
--
-- stands for that section of a document (without `section`: for the whole document but its title),
-- so that each text has one home. A section that is not there any more ends the build.

local own_base = 1  -- the level of the skeleton's own headings

local function read(path)
  local file = assert(io.open(path, "r"))
  local text = file:read("a")
  file:close()
  return pandoc.read(text, "gfm-smart").blocks
end

-- The blocks below the heading, up to the next one of its level.
local function section_of(blocks, wanted, path)
  local level, found = nil, pandoc.List()
  for _, block in ipairs(blocks) do
    if block.t == "Header" and level and block.level <= level then
      break
    end
    if level then
      found:insert(block)
    elseif block.t == "Header" and pandoc.utils.stringify(block) == wanted then
      level = block.level
    end
  end
  assert(level, path .. " has no section \"" .. wanted .. "\"")
  return found, level
end

local function without_title(blocks)
  assert(blocks[1].t == "Header" and blocks[1].level == 1)
  local rest = pandoc.List(blocks)
  rest:remove(1)
  return rest
end

-- Headings of what is included come below the heading it is included under, or take its level when
-- it stands alone.
local function shift(blocks, by)
  for _, block in ipairs(blocks) do
    if block.t == "Header" then
      block.level = math.max(own_base, block.level + by)
    end
  end
  return blocks
end

local function include(block)
  local path, wanted = block.attributes.file, block.attributes.section
  if not wanted then
    return shift(without_title(read(path)), -1)
  end
  local found, level = section_of(read(path), wanted, path)
  return shift(found, own_base - level)
end

-- In a block with lines too long for a terminal, what explains a line goes below it.
local function fold(text)
  local longest, folded = 0, {}
  for line in (text .. "\n"):gmatch("(.-)\n") do
    longest = math.max(longest, utf8.len(line))
    table.insert(folded, (line:gsub("^(.*%S)%s+(# .*)$", "%1\n      %2")))
  end
  return longest > 66 and table.concat(folded, "\n") or text
end

-- Where a man page has a page of its own for what a document links to.
local pages = {
  ["protocol.md"] = "serial-port-handler-protocol(7)",
  ["operations.md"] = "SerialPortHandler(8)",
}

-- A reader of a man page cannot follow a relative link: the page or the file's name must do.
local function link(element)
  if element.target:match("^%a+:") then
    return element
  end
  local name = element.target:gsub("#.*", ""):gsub(".*/", "")
  local text = pandoc.utils.stringify(element)
  if pages[name] then
    return pandoc.Strong(pages[name])
  end
  if name == "" or text:find(name, 1, true) then
    return pandoc.Emph(element.content)
  end
  local words = pandoc.List(element.content)
  words:extend({pandoc.Space(), pandoc.Str("(" .. name .. ")")})
  return words
end

local function heading(element)
  if element.level == own_base then
    return pandoc.walk_block(element, {
      Str = function(word) return pandoc.Str(word.text:upper()) end,
    })
  end
end

-- The characters that each column needs to stand on one line.
local function widths_of(simple)
  local widths = pandoc.List()
  for column = 1, #simple.header do
    widths[column] = utf8.len(pandoc.utils.stringify(simple.header[column]))
    for _, row in ipairs(simple.rows) do
      widths[column] = math.max(widths[column], utf8.len(pandoc.utils.stringify(row[column])))
    end
  end
  return widths
end

local function fits(widths)
  local sum = 0
  for _, width in ipairs(widths) do
    sum = sum + width + 3
  end
  return sum <= 72
end

-- How many cells it takes to tell the rows apart, at most two.
local function width_of_term(rows)
  local seen = {}
  for _, row in ipairs(rows) do
    local first = pandoc.utils.stringify(row[1])
    if seen[first] and #row > 2 then
      return 2
    end
    seen[first] = true
  end
  return 1
end

local function term_of(row, width)
  local term = pandoc.List()
  for column = 1, width do
    if column > 1 then
      term:extend({pandoc.Str(":"), pandoc.Space()})
    end
    term:extend(row[column][1] and row[column][1].content or {pandoc.Str("(none)")})
  end
  return term
end

local function as_list(simple)
  local items = pandoc.List()
  local width = width_of_term(simple.rows)
  for _, row in ipairs(simple.rows) do
    local told = pandoc.List()
    for column = width + 1, #row do
      local label = pandoc.utils.stringify(simple.header[column])
      for _, block in ipairs(row[column]) do
        local text = pandoc.List(block.content)
        if #row > width + 1 and label ~= "" then
          text:insert(1, pandoc.Emph(label .. ":"))
          text:insert(2, pandoc.Space())
        end
        told:insert(pandoc.Para(text))
      end
    end
    items:insert({term_of(row, width), {told}})
  end
  return pandoc.DefinitionList(items)
end

-- A table too wide for a terminal is told row by row: the first cell, and the others below it.
local function table_(element)
  local simple = pandoc.utils.to_simple_table(element)
  local widths = widths_of(simple)
  if not fits(widths) then
    return as_list(simple)
  end
  local columns = pandoc.List()
  for column, width in ipairs(widths) do
    columns[column] = {element.colspecs[column][1], (width + 1) / 70}  -- of 70 characters
  end
  element.colspecs = columns
  return element
end

return {
  {
    CodeBlock = function(block)
      if block.classes:includes("include") then
        return include(block)
      end
    end,
  },
  {
    -- What a document calls an executed example is plain text here.
    CodeBlock = function(block) return pandoc.CodeBlock(fold(block.text)) end,
    Link = link,
    Header = heading,
    Table = table_,
  },
}
