# The helper's metadata: its version and a build ID that changes with every different build,
# so that Corvana replaces an installed helper whose bytes differ in any way.
file(SHA256 "${HELPER}" build_id)
set(text "[Corvana Helper]\nName=Corvana Helper\nIdentifier=org.corvana.CorvanaHelper\nVersion=${VERSION}\nBuildID=${build_id}\n")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
  if(old STREQUAL text)
    return()
  endif()
endif()
file(WRITE "${OUTPUT}" "${text}")
