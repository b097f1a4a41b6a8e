# Arithmetic must be exact and reproducible: no fused multiply-add contraction, no fast math,
# no host-specific instruction sets. The 32-bit build adds -msse2 -mfpmath=sse through its preset.
add_compile_options(-ffp-contract=off -fno-fast-math -Wall -Wextra)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wshadow=local)
endif()

# Plug-in side compile options: nothing leaves the library unless marked, no exceptions, no RTTI.
set(VELLUX_PLUGIN_CXX_OPTIONS -fvisibility=hidden -fvisibility-inlines-hidden -fno-exceptions -fno-rtti)

# Sanitizer build: -DVELLUX_SANITIZE=ON
option(VELLUX_SANITIZE "AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(VELLUX_SANITIZE)
  # float-cast-overflow is not part of "undefined" here, and an out-of-range float-to-integer
  # conversion is exactly what the layout and painters must never do.
  add_compile_options(-fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined,float-cast-overflow)
endif()

# ThreadSanitizer build: -DVELLUX_TSAN=ON (the tsan preset, which builds and runs the threaded
# engine tests). Not together with VELLUX_SANITIZE: the two runtimes exclude each other.
option(VELLUX_TSAN "ThreadSanitizer" OFF)
if(VELLUX_TSAN)
  if(VELLUX_SANITIZE)
    message(FATAL_ERROR "VELLUX_TSAN and VELLUX_SANITIZE cannot be combined")
  endif()
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
