# SPDX-License-Identifier: Apache-2.0
# cmake "-DFILES=a.html;b.css" -DOUTPUT=files.cpp -P Embed.cmake
#
# Writes a C++ source with the files' contents, for host/report/page_files.h.
set(arrays "")
set(table "")
foreach(file IN LISTS FILES)
    get_filename_component(name "${file}" NAME)
    string(MAKE_C_IDENTIFIER "${name}" array)
    file(READ "${file}" bytes HEX)
    string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")  # 16 bytes on a line
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
    string(APPEND arrays "constexpr char ${array}[] = {\n${bytes}};\n")
    string(APPEND table "    {\"${name}\", {${array}, sizeof(${array})}},\n")
endforeach()
file(WRITE "${OUTPUT}" "#include \"host/report/page_files.h\"\n
namespace krel::host {
namespace {
${arrays}constexpr PageFile kFiles[] = {\n${table}};
}  // namespace
std::span<const PageFile> page_files() { return kFiles; }
}  // namespace krel::host\n")
