# Compiler settings that every target of the project shares.

# A compiler cache where there is one, unless another launcher was asked for.
find_program(VELMORRA_CCACHE ccache)
mark_as_advanced(VELMORRA_CCACHE)
if(VELMORRA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${VELMORRA_CCACHE})
endif()

add_library(velmorra_options INTERFACE)
target_compile_options(velmorra_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow
    -Wnon-virtual-dtor -Wcast-align=strict -Woverloaded-virtual)
# GCC 12 reports overlapping copies in std::string's own operator+ (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(velmorra_options INTERFACE -Wno-restrict)
endif()
if(VELMORRA_WERROR)
    target_compile_options(velmorra_options INTERFACE -Werror)
endif()
if(VELMORRA_SANITIZE)
    add_compile_options(-fsanitize=${VELMORRA_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${VELMORRA_SANITIZE})
endif()
target_compile_definitions(velmorra_options INTERFACE QT_NO_KEYWORDS
    QT_NO_CAST_TO_ASCII QT_NO_FOREACH)
target_include_directories(velmorra_options INTERFACE ${CMAKE_SOURCE_DIR})
