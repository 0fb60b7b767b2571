# WAVESTORE_SANITIZE=address builds everything with AddressSanitizer and UBSan,
# WAVESTORE_SANITIZE=thread with ThreadSanitizer.
if(WAVESTORE_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(WAVESTORE_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT WAVESTORE_SANITIZE STREQUAL "")
  message(FATAL_ERROR "WAVESTORE_SANITIZE must be empty, 'address' or 'thread'")
endif()
