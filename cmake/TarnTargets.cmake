# Compiler and linker settings, applied per target.

function(tarn_configure_target target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
      -Wnon-virtual-dtor -g -ffp-contract=off -fno-omit-frame-pointer)
  if(TARN_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(TARN_SANITIZE)
    # -g1: full debug data of instrumented objects only slows the link.
    target_compile_options(${target} PRIVATE -fsanitize=${TARN_SANITIZE} -g1)
    target_link_options(${target} PRIVATE -fsanitize=${TARN_SANITIZE})
    if(TARN_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fsanitize=float-cast-overflow
          -fno-sanitize-recover=all)
    endif()
  endif()
  target_link_libraries(${target} PRIVATE Threads::Threads)
endfunction()

# The libraries that the objects need at run time. libcjson must stay NEEDED although nothing refers to
# it at link time (its functions are forwarded lazily); one string, or CMake would reorder it.
set(TARN_RUNTIME_LIBRARIES "-Wl,--push-state,--no-as-needed,-lcjson,--pop-state" uuid)

function(tarn_configure_shared_library target)
  set_target_properties(${target} PROPERTIES
      OUTPUT_NAME Tarn.Generic
      LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
      BUILD_WITH_INSTALL_RPATH ON
      INSTALL_RPATH "$ORIGIN:$ORIGIN/libs"
      LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  target_link_options(${target} PRIVATE
      -Wl,--enable-new-dtags -Wl,-z,nodelete -Wl,-z,now -Wl,-z,relro -Wl,-Bsymbolic-functions
      -Wl,--as-needed -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  if(NOT TARN_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  target_link_libraries(${target} PRIVATE ${TARN_RUNTIME_LIBRARIES})
endfunction()
