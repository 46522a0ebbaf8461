# Instruments all targets of the tree with the sanitizers of RXP2K7_SANITIZE.
if(RXP2K7_SANITIZE)
  add_compile_options(-fsanitize=${RXP2K7_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RXP2K7_SANITIZE})
endif()
if(RXP2K7_LIBFUZZER)
  # Coverage for every library, so that the fuzzer sees into them; only the targets link the engine.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
