# Stands in for the packages of the machine that builds when the compiler is one for another machine: that machine's
# libraries do not fit, and /usr/include must not come before the cross compiler's own headers. Header-only packages
# are reached through links of their own, GoogleTest is built from Debian's sources.
function(hive_redirect_package name content)
  string(TOLOWER "${name}" file)
  file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/${file}-config.cmake "${content}")
  file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/${file}-config-version.cmake "set(PACKAGE_VERSION_COMPATIBLE TRUE)\n")
endfunction()

function(hive_headers_package package target folder)
  set(links ${PROJECT_BINARY_DIR}/headers/${folder})
  file(MAKE_DIRECTORY ${links})
  file(CREATE_LINK /usr/include/${folder} ${links}/${folder} SYMBOLIC)
  hive_redirect_package(${package} "
    if(NOT TARGET ${target})
      add_library(${target} INTERFACE IMPORTED GLOBAL)
      target_include_directories(${target} SYSTEM INTERFACE ${links})
    endif()\n")
endfunction()

hive_headers_package(CLI11 CLI11::CLI11 CLI)
hive_headers_package(nlohmann_json nlohmann_json::nlohmann_json nlohmann)
hive_redirect_package(GTest "
  if(NOT TARGET gtest)
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  endif()\n")
