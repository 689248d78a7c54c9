# Warnings are errors where we build (the presets set TOVIK_WERROR), never for a compiler that we have not seen.
# Sanitizers apply to every target alike.
add_compile_options(-Wall -Wextra)
if(TOVIK_WERROR)
  add_compile_options(-Werror)
endif()
if(TOVIK_SANITIZE)
  add_compile_options(-fsanitize=${TOVIK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TOVIK_SANITIZE})
endif()
if(TOVIK_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
