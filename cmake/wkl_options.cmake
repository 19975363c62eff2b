# Language level, warnings and sanitizers that every target of the project shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_OPTIMIZE_DEPENDENCIES ON) # a static library need not wait for the ones below it
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O3 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O3 -DNDEBUG")

set(WKL_SANITIZE "" CACHE STRING "Sanitizers: empty, 'address' (address and undefined behaviour) or 'thread'")

if(WKL_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES Clang) # the reports need names and lines only
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -gline-tables-only -DNDEBUG")
    set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O1 -gline-tables-only -DNDEBUG")
endif()

add_library(wkl_options INTERFACE)
target_compile_options(wkl_options INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
if(WKL_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(WKL_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread)
    add_link_options(-fsanitize=thread)
endif()

if(WKL_FUZZERS)
    add_compile_options(-fsanitize=fuzzer-no-link) # coverage for libFuzzer in every object
endif()

# The core: nothing throws, and no product is fused with an addition unless a file asks for it, so that bits do not depend on the compiler.
add_library(wkl_core_options INTERFACE)
target_link_libraries(wkl_core_options INTERFACE wkl_options)
target_compile_options(wkl_core_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti>
    -ffp-contract=off -fno-math-errno)

find_package(OpenMP REQUIRED COMPONENTS CXX C)
