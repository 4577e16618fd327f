// The page's files. Their contents are compiled into the program.
#pragma once

#include <span>
#include <string_view>

namespace ZelExporter {

struct PageFile {
   std::string_view path; // as it is asked for: "/page.css"
   std::string_view contentType;
   std::string_view text;
   std::string_view tag; // another one for another text
};

std::span<const PageFile> pageFiles();

} // namespace ZelExporter
