include(GenerateExportHeader)

# Warnings used by every target of the project.
function(kel_target_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(KEL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# kel_add_library(<target> EXPORT_NAME <name> EXPORT_HEADER <path> EXPORT_MACRO <macro>
#                 INCLUDE_DIR <dir> SOURCE_DIRS <dir>... [PUBLIC_DEPS ...] [PRIVATE_DEPS ...])
# A shared library made of every .cpp/.h below SOURCE_DIRS and the headers below INCLUDE_DIR,
# with a generated export header, the alias KelSDK::<EXPORT_NAME> and install rules.
function(kel_add_library target)
  cmake_parse_arguments(A "" "EXPORT_NAME;EXPORT_HEADER;EXPORT_MACRO;INCLUDE_DIR"
                        "SOURCE_DIRS;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  set(globs "")
  foreach(dir IN LISTS A_SOURCE_DIRS)
    list(APPEND globs ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.h)
  endforeach()
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${globs})
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${A_INCLUDE_DIR}/*.h)
  list(FILTER sources INCLUDE REGEX "\\.cpp$|\\.h$")
  set(cpp ${sources})
  list(FILTER cpp INCLUDE REGEX "\\.cpp$")
  if(NOT cpp)
    message(STATUS "${target}: no sources yet, not built")
    return()
  endif()
  kel_existing_targets(A_PUBLIC_DEPS)
  add_library(${target} SHARED ${sources} ${headers})
  add_library(KelSDK::${A_EXPORT_NAME} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${A_EXPORT_NAME}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  set(generated ${CMAKE_CURRENT_BINARY_DIR}/generated)
  generate_export_header(${target} BASE_NAME ${target} EXPORT_MACRO_NAME ${A_EXPORT_MACRO}
    EXPORT_FILE_NAME ${generated}/${A_EXPORT_HEADER})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${A_INCLUDE_DIR}> $<BUILD_INTERFACE:${generated}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target} PUBLIC ${A_PUBLIC_DEPS} PRIVATE ${A_PRIVATE_DEPS})
  kel_target_warnings(${target})
  install(TARGETS ${target} EXPORT KelSDKTrianglesIOTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(DIRECTORY ${A_INCLUDE_DIR}/ ${generated}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
endfunction()

# Keeps in the list variable only the names that are targets (libraries not yet written drop out).
macro(kel_existing_targets var)
  set(_kept "")
  foreach(_t IN LISTS ${var})
    if(TARGET ${_t})
      list(APPEND _kept ${_t})
    endif()
  endforeach()
  set(${var} ${_kept})
endmacro()

# kel_add_test(<name> LIBS <lib>...): one GoogleTest program made of tests/<name>/*.cpp.
function(kel_add_test name)
  cmake_parse_arguments(A "" "" "LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  foreach(lib IN LISTS A_LIBS)
    if(NOT TARGET ${lib})
      return()
    endif()
  endforeach()
  if(NOT sources)
    return()
  endif()
  add_executable(kel_tests_${name} ${sources})
  target_link_libraries(kel_tests_${name} PRIVATE ${A_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(kel_tests_${name} PRIVATE
    KEL_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/data")
  target_include_directories(kel_tests_${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  kel_target_warnings(kel_tests_${name})
  gtest_discover_tests(kel_tests_${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()
