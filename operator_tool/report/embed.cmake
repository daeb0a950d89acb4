# cmake -DOUTPUT=FILE -DINPUTS="NAME=FILE,..." -P embed.cmake
#
# Writes a source file with the bytes of each input, as a std::string_view of that name.
string(REPLACE "," ";" inputs "${INPUTS}")
set(code "#include \"operator_tool/report/report_parts.h\"\n\nnamespace corvane::ctl {\n\n")
foreach(input ${inputs})
  string(REGEX MATCH "^([^=]+)=(.+)$" matched "${input}")
  set(name ${CMAKE_MATCH_1})
  set(file ${CMAKE_MATCH_2})
  file(READ "${file}" text HEX)
  # "</script" and "</style" would end the element that the text is put into.
  if(NOT name STREQUAL "kReportPage" AND text MATCHES "3c2f(736372697074|7374796c65)")
    message(FATAL_ERROR "${file} holds the end of its own element")
  endif()
  string(REGEX REPLACE "(................................)" "\\1\n" lines "${text}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${lines}")
  string(APPEND code "static constexpr char ${name}Bytes[] = {\n${bytes}};\n"
         "const std::string_view ${name}(${name}Bytes, sizeof ${name}Bytes);\n\n")
endforeach()
string(APPEND code "}  // namespace corvane::ctl\n")
file(WRITE "${OUTPUT}" "${code}")
