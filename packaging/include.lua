-- SPDX-License-Identifier: MIT
-- For the skeletons of pages, docs/man/NAME.SECTION.md. A code block
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

return {
  {
    CodeBlock = function(block)
      if block.classes:includes("include") then
        return include(block)
      end
    end,
  },
}
