# SPDX-License-Identifier: MIT
#
# corvane_simd_sources(TARGET [WITH_PLAIN] file.cpp...): compiles each file once per instruction
# level into an object library of its own, so that no stray instruction reaches the generic objects,
# and adds the objects to TARGET, which links corvane_simd. The body sees CORVANE_SIMD_LEVEL (1
# SSE4.1, 2 AVX2, 3 AVX-512) and wraps itself in the namespace CORVANE_SIMD_NAMESPACE (sse4, avx2,
# avx512); simd/choose.h declares such code and chooses of it. With WITH_PLAIN the same body is the
# plain one too (level 0, namespace plain). Only 64-bit x86 has fast paths.

set(CORVANE_SIMD OFF)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$" AND CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(CORVANE_SIMD ON)
endif()

set(corvane_simd_optimization -O3)
if(CORVANE_SANITIZE)
  # The highest level would take minutes a file, and what a vector is read from is checked by the
  # address sanitizer.
  set(corvane_simd_optimization -O1 -fno-sanitize=null,alignment,object-size)
endif()

set(corvane_flags_sse4 -mssse3 -msse4.1)
set(corvane_flags_avx2 -mavx2 -mbmi -mbmi2 -mpclmul -mpopcnt -mlzcnt)
set(corvane_flags_avx512 ${corvane_flags_avx2} -mavx512f -mavx512bw -mavx512vl -mavx512dq)
set(corvane_flags_avx512vbmi ${corvane_flags_avx512} -mavx512vbmi)
if(WIN32)
  # The compiler does not align the stack to 32 bytes there; let its vector spills be unaligned.
  list(APPEND corvane_flags_avx2 -Wa,-muse-unaligned-vector-move)
  list(APPEND corvane_flags_avx512 -Wa,-muse-unaligned-vector-move)
  list(APPEND corvane_flags_avx512vbmi -Wa,-muse-unaligned-vector-move)
endif()

# One object library of TARGET: a source on one level.
function(corvane_simd_object target source level instructions)
  get_filename_component(name ${source} NAME_WE)
  set(object corvane_${name}_${instructions})
  add_library(${object} OBJECT ${source})
  target_link_libraries(${object} PRIVATE corvane_core_options)
  target_compile_definitions(${object} PRIVATE CORVANE_SIMD_LEVEL=${level}
                             CORVANE_SIMD_NAMESPACE=${instructions})
  # Vector sums are plain sums to the compiler; reordering them lengthens the serial chains. A
  # product and a sum are two roundings on every level.
  target_compile_options(${object} PRIVATE ${corvane_simd_optimization} -ffp-contract=off
                         $<$<CXX_COMPILER_ID:GNU>:-fno-tree-reassoc>
                         ${corvane_flags_${instructions}})
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:${object}>)
endfunction()

function(corvane_simd_sources target)
  cmake_parse_arguments(simd WITH_PLAIN "" "" ${ARGN})
  foreach(source IN LISTS simd_UNPARSED_ARGUMENTS)
    if(simd_WITH_PLAIN)
      corvane_simd_object(${target} ${source} 0 plain)
    endif()
    if(CORVANE_SIMD)
      corvane_simd_object(${target} ${source} 1 sse4)
      corvane_simd_object(${target} ${source} 2 avx2)
      corvane_simd_object(${target} ${source} 3 avx512)
    endif()
  endforeach()
endfunction()
