# Own dense kernels against the BLAS library.
add_executable(dense_bench dense_bench.cpp)
target_link_libraries(dense_bench PRIVATE wkl_dense wkl_options)
