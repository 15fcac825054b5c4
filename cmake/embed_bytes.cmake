# Writes a C++ source that holds the bytes of a file as a char array.
#   cmake -DINPUT=FILE -DOUTPUT=FILE.cpp -DSYMBOL=name -P embed_bytes.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
string(REGEX REPLACE "(([^,]*,){16})" "\\1\n    " bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp"
    "// Generated from ${INPUT}; edit that file instead.\n"
    "#include <cstddef>\n\n"
    "extern const char ${SYMBOL}[] = {\n    ${bytes}0};\n"
    "extern const size_t ${SYMBOL}Size = ${size};\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
