-- SPDX-License-Identifier: MIT
-- Makes a document fit for a man page, as terminals show it.

local own_base = 1  -- the level of the page's own headings

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
    -- What a document calls an executed example is plain text here.
    CodeBlock = function(block) return pandoc.CodeBlock(fold(block.text)) end,
    Link = link,
    Header = heading,
    Table = table_,
  },
}
