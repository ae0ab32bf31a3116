# CUEWRIGHT_SANITIZE: a list for -fsanitize= (for example "address,undefined"), empty for none.
set(CUEWRIGHT_SANITIZE "" CACHE STRING "Sanitizers, as the argument of -fsanitize=")
if(CUEWRIGHT_SANITIZE)
  add_compile_options(-fsanitize=${CUEWRIGHT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CUEWRIGHT_SANITIZE})
endif()
