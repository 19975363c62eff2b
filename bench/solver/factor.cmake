# Numeric factorization against CHOLMOD.
find_library(CHOLMOD_LIBRARY cholmod)
find_path(CHOLMOD_INCLUDE cholmod.h PATH_SUFFIXES suitesparse)
if(CHOLMOD_LIBRARY AND CHOLMOD_INCLUDE)
    add_executable(factor_bench factor_bench.cpp factor_pipeline.cpp)
    target_include_directories(factor_bench SYSTEM PRIVATE ${CHOLMOD_INCLUDE})
    target_link_libraries(factor_bench PRIVATE wkl_options wkl_bench_common wkl_factor wkl_analysis ${CHOLMOD_LIBRARY})
    # the peer brings a BLAS with 32-bit integers under the same names
    target_link_options(factor_bench PRIVATE -Wl,--exclude-libs,ALL)
endif()
