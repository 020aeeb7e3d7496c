# vorn_add_kernel_library(SOURCE OUTPUT_FOLDER LIST): compiles one kernel source to a kernel
# library in a folder and appends the library to the list of that name. A rebuild after touching a
# source compiles that one; after touching a header in kernels/include/, those that use it.

find_program(SPIRV_VALIDATOR spirv-val REQUIRED)

set(VORN_KERNEL_INCLUDES ${PROJECT_SOURCE_DIR}/kernels/include)
set(VORN_LANES ${PROJECT_SOURCE_DIR}/imaging/kernelc/lanes)

set(VORN_KERNEL_LEVELS all CACHE STRING
    "Which code kernels get besides that of the reference device: all, for every processor; best, for this one")

# Instruction-set levels: name, lanes, compiler flags. The reference level comes first: one lane and
# no contraction, the plainest reading of a kernel's text.
set(VORN_LEVELS reference:1:-O1,-ffp-contract=off)
if(VORN_SANITIZE AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  # The sanitizers watch one level, whose text is that of the others, and are spared those. What
  # they would say of null pointers and of sizes of objects costs GCC minutes in code like this.
  string(REPLACE "," ",-fsanitize=" watched "-fsanitize=${VORN_SANITIZE}")
  foreach(check IN ITEMS null alignment object-size pointer-overflow)
    string(APPEND watched ",-fno-sanitize=${check}")
  endforeach()
  list(APPEND VORN_LEVELS
       x86-64-v2:4:-O1,-g1,${watched},-fno-sanitize-recover=undefined,-march=x86-64-v2)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  list(APPEND VORN_LEVELS x86-64-v2:4:-O2,-march=x86-64-v2 x86-64-v3:8:-O2,-march=x86-64-v3
                          x86-64-v4:16:-O2,-march=x86-64-v4)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64")
  list(APPEND VORN_LEVELS neon:4:-O2)
endif()

if(VORN_KERNEL_LEVELS STREQUAL "best" AND NOT VORN_SANITIZE)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -march=native -dM -E -x c++ /dev/null
                  OUTPUT_VARIABLE native ERROR_QUIET)
  if(native MATCHES "__AVX512BW__" AND native MATCHES "__AVX512DQ__" AND native MATCHES "__AVX512VL__")
    list(FILTER VORN_LEVELS INCLUDE REGEX "reference|x86-64-v4")
  elseif(native MATCHES "__AVX2__")
    list(FILTER VORN_LEVELS INCLUDE REGEX "reference|x86-64-v3")
  endif()
endif()

file(GLOB VORN_LANE_HEADERS CONFIGURE_DEPENDS ${VORN_LANES}/*.h ${VORN_LANES}/*.cpp
                                              ${PROJECT_SOURCE_DIR}/imaging/kernelc/abi.h)

set(VORN_LEVEL_OPTIONS)
foreach(level ${VORN_LEVELS})
  list(APPEND VORN_LEVEL_OPTIONS --level ${level})
endforeach()

# The headers of the lanes and the functions that kernels call, compiled in advance for all kernels.
set(VORN_PREPARED_LANES ${PROJECT_BINARY_DIR}/lanes)
set(VORN_PREPARATION ${VORN_PREPARED_LANES}/stamp)
if(NOT TARGET prepared_lanes)
  add_custom_command(OUTPUT ${VORN_PREPARATION}
    COMMAND kernelc --prepare ${VORN_PREPARED_LANES} --lanes ${VORN_LANES}
            --compiler ${CMAKE_CXX_COMPILER} ${VORN_LEVEL_OPTIONS}
    COMMAND ${CMAKE_COMMAND} -E touch ${VORN_PREPARATION}
    DEPENDS kernelc ${VORN_LANE_HEADERS}
    COMMENT "Headers of the lanes"
    VERBATIM)
  add_custom_target(prepared_lanes DEPENDS ${VORN_PREPARATION})
endif()

function(vorn_add_kernel_library source output_folder list_name)
  get_filename_component(name ${source} NAME_WE)
  set(library ${output_folder}/${name}.ci.metallib)
  set(temporary ${CMAKE_CURRENT_BINARY_DIR})
  add_custom_command(OUTPUT ${library}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${output_folder}
    COMMAND kernelc --output ${library} --include ${VORN_KERNEL_INCLUDES} --lanes ${VORN_LANES}
            --compiler ${CMAKE_CXX_COMPILER} --validator ${SPIRV_VALIDATOR}
            --depfile ${temporary}/${name}.d --temporary ${temporary} ${VORN_LEVEL_OPTIONS}
            --prepared ${VORN_PREPARED_LANES} ${source}
    DEPENDS kernelc ${source} ${VORN_LANE_HEADERS} $<TARGET_NAME_IF_EXISTS:prepared_lanes>
    DEPFILE ${temporary}/${name}.d
    COMMENT "Kernel library ${name}"
    VERBATIM)
  set(${list_name} ${${list_name}} ${library} PARENT_SCOPE)
endfunction()
