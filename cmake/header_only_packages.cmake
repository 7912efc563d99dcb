# For a cross build: fmt and CLI11 from this machine's packages, as headers alone. Their folders are
# linked to, because the folder around them holds the headers of another C library.
set(headerFolder ${CMAKE_BINARY_DIR}/header_only)
file(MAKE_DIRECTORY ${headerFolder})
foreach(header fmt/format.h CLI/CLI.hpp)
    cmake_path(GET header PARENT_PATH package)
    find_path(${package}_headers ${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    file(CREATE_LINK ${${package}_headers}/${package} ${headerFolder}/${package} SYMBOLIC)
endforeach()

add_library(fmt::fmt INTERFACE IMPORTED)
set_target_properties(fmt::fmt PROPERTIES
    INTERFACE_COMPILE_DEFINITIONS FMT_HEADER_ONLY
    INTERFACE_INCLUDE_DIRECTORIES ${headerFolder})
add_library(CLI11::CLI11 INTERFACE IMPORTED)
set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${headerFolder})
