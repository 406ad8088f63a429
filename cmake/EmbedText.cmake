# Writes a C++ source that holds the text of a file as a string constant, so
# that the library carries files such as shader sources without looking them
# up at run time.
#   set(INPUT <file>) set(OUTPUT <file.cpp>) set(SYMBOL <name>) include(EmbedText.cmake)
# or: cmake -DINPUT=<file> -DOUTPUT=<file.cpp> -DSYMBOL=<name> -P EmbedText.cmake
# The constant is `extern const char* const <SYMBOL>`, defined at namespace scope.
file(READ "${INPUT}" text)
string(FIND "${text}" ")cxtext\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${INPUT} contains the raw string delimiter )cxtext\"")
endif()
get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp"
  "// Generated from ${name} by EmbedText.cmake; edit the source file instead.\n"
  "extern const char* const ${SYMBOL};\n"
  "const char* const ${SYMBOL} = R\"cxtext(${text})cxtext\";\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
