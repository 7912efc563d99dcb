# What every target of the project is compiled with: link fatvol_options privately.
add_library(fatvol_options INTERFACE)
target_compile_options(fatvol_options INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor)
target_compile_definitions(fatvol_options INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
if(WIN32)  # the W functions' texts, and names like min left to C++
    target_compile_definitions(fatvol_options INTERFACE UNICODE NOMINMAX WIN32_LEAN_AND_MEAN)
endif()

if(FATVOL_SMALL_CACHES)
    target_compile_definitions(fatvol_options INTERFACE FATVOL_SMALL_CACHES)
endif()

if(FATVOL_SANITIZE)
    target_compile_options(fatvol_options INTERFACE
        $<$<NOT:$<BOOL:${FATVOL_FUZZ}>>:-O1> -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(fatvol_options INTERFACE -fsanitize=address,undefined)
endif()

if(FATVOL_COVERAGE)
    target_compile_options(fatvol_options INTERFACE -fprofile-instr-generate -fcoverage-mapping)
    target_link_options(fatvol_options INTERFACE -fprofile-instr-generate)
endif()
