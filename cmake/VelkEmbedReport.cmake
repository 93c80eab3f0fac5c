# Run with cmake -P at build time: makes the C++ source that holds the report page.
#   -DTEMPLATE=report.html -DCHART_JS=chart.min.js -DOUTPUT=ReportPage.generated.cpp
# The template's @CHART_JS@ becomes Chart.js as installed (with its licence header), and the page
# is cut at @DAY_TABLE@, where the writer puts the day table at run time. The two halves become
# byte arrays: string literals that long are beyond what ISO C++ promises.
cmake_minimum_required(VERSION 3.25)  # the policies: no @VAR@ expansion in quoted arguments
file(READ "${TEMPLATE}" page)
file(READ "${CHART_JS}" chart)
string(TOLOWER "${chart}" lowered)
string(FIND "${lowered}" "</script" closing)
if(NOT closing EQUAL -1)
  message(FATAL_ERROR "${CHART_JS} holds \"</script\" and cannot be inlined in a script element")
endif()
string(FIND "${page}" "@CHART_JS@" chartAt)
string(FIND "${page}" "@DAY_TABLE@" tableAt)
if(chartAt EQUAL -1 OR tableAt EQUAL -1)
  message(FATAL_ERROR "${TEMPLATE} lacks @CHART_JS@ or @DAY_TABLE@")
endif()
string(REPLACE "@CHART_JS@" "${chart}" page "${page}")
string(FIND "${page}" "@DAY_TABLE@" tableAt)
string(SUBSTRING "${page}" 0 ${tableAt} head)
math(EXPR tailAt "${tableAt} + 11")
string(SUBSTRING "${page}" ${tailAt} -1 tail)

function(byte_array name text out)
  string(HEX "${text}" hex)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
  string(LENGTH "${text}" size)
  set(${out} "extern const char ${name}[] = {${bytes}};\nextern const std::size_t ${name}Size = ${size};\n" PARENT_SCOPE)
endfunction()
byte_array(kReportPageHead "${head}" headArray)
byte_array(kReportPageTail "${tail}" tailArray)
file(WRITE "${OUTPUT}.tmp" "// Generated from ${TEMPLATE} and ${CHART_JS} by VelkEmbedReport.cmake.\n#include <cstddef>\nnamespace velk::report {\n${headArray}${tailArray}}  // namespace velk::report\n")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
