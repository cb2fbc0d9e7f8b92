# Compile options shared by every target of ours.
add_library(corvana_options INTERFACE)
target_compile_options(corvana_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
if(CORVANA_WERROR)
  target_compile_options(corvana_options INTERFACE -Werror)
endif()
target_compile_definitions(corvana_options INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_USE_QSTRINGBUILDER QT_NO_KEYWORDS
  QT_NO_URL_CAST_FROM_STRING QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
if(CORVANA_SANITIZE)
  target_compile_options(corvana_options INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(corvana_options INTERFACE -fsanitize=address,undefined)
endif()
if(CORVANA_FUZZ)
  # Coverage for the fuzzer in everything it reaches; the fuzz targets add the fuzzer's main.
  target_compile_options(corvana_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  target_link_options(corvana_options INTERFACE -fsanitize=address,undefined)
endif()
