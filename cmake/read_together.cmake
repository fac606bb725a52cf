# Sources that the compiler reads some at a time: what their templates make is made once. Files of a piece must not define
# the same, and no function of a file may be called as one of a header, which it would hide from the files behind it
# (script/check_style).
#
#   hbs_read_together(RESULT NAME SIZE SOURCE...)   RESULT: files that include at most SIZE of the sources each. The
#                                                   sources are named relative to a directory of includes, so that
#                                                   checkouts share the compiler cache.
function(hbs_read_together result name size)
    list(LENGTH ARGN count)
    math(EXPR parts "(${count} + ${size} - 1) / ${size}")
    set(files)
    foreach(part RANGE 1 ${parts})
        math(EXPR begin "(${part} - 1) * ${count} / ${parts}")
        math(EXPR length "${part} * ${count} / ${parts} - ${begin}")
        list(SUBLIST ARGN ${begin} ${length} sources)
        list(TRANSFORM sources REPLACE "(.+)" "#include \"\\1\"\n")
        string(JOIN "" text ${sources})
        set(file ${CMAKE_CURRENT_BINARY_DIR}/together/${name}_${part}.cpp)
        file(CONFIGURE OUTPUT ${file} CONTENT "${text}" @ONLY)
        list(APPEND files ${file})
    endforeach()
    set(${result} ${files} PARENT_SCOPE)
endfunction()
