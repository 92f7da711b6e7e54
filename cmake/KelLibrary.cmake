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
# with a generated export header, the alias KelSDK::<EXPORT_NAME> and install rules. A source
# folder that does not exist or holds no .cpp, and a dependency that is not a target, stop the
# configuration: code never drops out of the build unnoticed.
function(kel_add_library target)
  cmake_parse_arguments(A "" "EXPORT_NAME;EXPORT_HEADER;EXPORT_MACRO;INCLUDE_DIR"
                        "SOURCE_DIRS;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  set(sources "")
  foreach(dir IN LISTS A_SOURCE_DIRS)
    set(path ${CMAKE_CURRENT_SOURCE_DIR}/${dir})
    file(GLOB_RECURSE cpp CONFIGURE_DEPENDS ${path}/*.cpp)
    if(NOT IS_DIRECTORY ${path} OR NOT cpp)
      message(FATAL_ERROR "${target}: source folder '${dir}' does not exist or holds no .cpp file")
    endif()
    file(GLOB_RECURSE h CONFIGURE_DEPENDS ${path}/*.h)
    list(APPEND sources ${cpp} ${h})
  endforeach()
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${A_INCLUDE_DIR}/*.h)
  kel_require_targets(${target} ${A_PUBLIC_DEPS} ${A_PRIVATE_DEPS})
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

# kel_require_targets(<user> <name>...): stops the configuration when a name is not a target.
function(kel_require_targets user)
  foreach(name IN LISTS ARGN)
    if(NOT TARGET ${name})
      message(FATAL_ERROR "${user}: '${name}' is not a target (a library that is missing or not built)")
    endif()
  endforeach()
endfunction()

# kel_add_test(<name> LIBS <lib>...): one GoogleTest program made of tests/<name>/*.cpp. A missing
# library or a folder without tests stops the configuration instead of dropping the tests.
function(kel_add_test name)
  cmake_parse_arguments(A "" "" "LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  kel_require_targets("tests/${name}" ${A_LIBS})
  if(NOT sources)
    message(FATAL_ERROR "tests/${name}: no .cpp file")
  endif()
  add_executable(kel_tests_${name} ${sources})
  target_link_libraries(kel_tests_${name} PRIVATE ${A_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(kel_tests_${name} PRIVATE
    KEL_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/data")
  target_include_directories(kel_tests_${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  kel_target_warnings(kel_tests_${name})
  gtest_discover_tests(kel_tests_${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()
