# Solves through the entry, and solves for some unknowns alone.
foreach(name solve_bench partial_bench)
    add_executable(${name} ${name}.cpp)
    target_link_libraries(${name} PRIVATE wkl_options wkl_bench_common wkl_solver)
endforeach()
