# Warnings are errors everywhere; sanitizers apply to every target alike.
add_compile_options(-Wall -Wextra -Werror)
if(TOVIK_SANITIZE)
  add_compile_options(-fsanitize=${TOVIK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TOVIK_SANITIZE})
endif()
if(TOVIK_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
