-- SPDX-License-Identifier: MIT
-- Makes a document a page of the manual: its links lead to other pages, or are none, and what is
-- wider than a small screen is moved within itself.

local pages, folder = {}, ""

local function read_names(meta)
  for name in pandoc.utils.stringify(meta.pages):gmatch("%S+") do
    pages[name] = name == "README.md" and "index.html" or name:gsub("%.md$", ".html")
  end
  folder = pandoc.utils.stringify(meta.page):match("^.*/") or ""
end

-- The file that a link of this document names, seen from where the documents are.
local function resolve(path)
  path = folder .. path
  local count
  repeat
    path, count = path:gsub("[^/]+/%.%./", "", 1)
  until count == 0
  return path
end

local function way_back()
  return (folder:gsub("[^/]+/", "../"))
end

local function link(element)
  if element.target:match("^%a+:") or element.target:match("^#") then
    return element
  end
  local path, anchor = element.target:match("^([^#]*)(#?.*)$")
  local page = pages[resolve(path)]
  if not page then
    return element.content
  end
  element.target = way_back() .. page .. anchor
  return element
end

return {
  {Meta = read_names},
  {
    Link = link,
    Table = function(element) return pandoc.Div(element, {class = "table"}) end,
  },
}
