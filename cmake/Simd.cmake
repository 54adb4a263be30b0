# SPDX-License-Identifier: MIT
#
# corvane_simd_sources(file.cpp...): compiles each file once per instruction level into an object
# library of its own, so that no stray instruction reaches the generic objects, and adds the objects
# to corvane_core. The body sees CORVANE_SIMD_LEVEL (1 SSE4.1, 2 AVX2, 3 AVX-512) and wraps itself in
# the namespace CORVANE_SIMD_NAMESPACE (sse4, avx2, avx512). Only 64-bit x86 has fast paths.

set(CORVANE_SIMD OFF)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$" AND CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(CORVANE_SIMD ON)
endif()

set(corvane_flags_sse4 -mssse3 -msse4.1)
set(corvane_flags_avx2 -mavx2 -mbmi -mbmi2 -mpclmul -mpopcnt -mlzcnt)
set(corvane_flags_avx512 ${corvane_flags_avx2} -mavx512f -mavx512bw -mavx512vl -mavx512dq)
if(WIN32)
  # The compiler does not align the stack to 32 bytes there; let its vector spills be unaligned.
  list(APPEND corvane_flags_avx2 -Wa,-muse-unaligned-vector-move)
  list(APPEND corvane_flags_avx512 -Wa,-muse-unaligned-vector-move)
endif()

function(corvane_simd_sources)
  if(NOT CORVANE_SIMD)
    return()
  endif()
  foreach(source IN LISTS ARGN)
    get_filename_component(name ${source} NAME_WE)
    set(level 0)
    foreach(instructions sse4 avx2 avx512)
      math(EXPR level "${level} + 1")
      set(target corvane_${name}_${instructions})
      add_library(${target} OBJECT ${source})
      target_link_libraries(${target} PRIVATE corvane_core_options)
      target_compile_definitions(${target} PRIVATE CORVANE_SIMD_LEVEL=${level}
                                 CORVANE_SIMD_NAMESPACE=${instructions})
      # Vector sums are plain sums to the compiler; reordering them lengthens the serial chains.
      target_compile_options(${target} PRIVATE -O3 -fno-tree-reassoc
                             ${corvane_flags_${instructions}})
      target_sources(corvane_core PRIVATE $<TARGET_OBJECTS:${target}>)
    endforeach()
  endforeach()
endfunction()
