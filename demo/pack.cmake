# Packs the Varnholt application into the product tarball; run with cmake -P.
#   SOURCE_DIR  the app folder of the sources
#   FILES       the files to pack, relative to SOURCE_DIR; a ".in" suffix means "fill in @VERSION@"
#   STAGE_DIR   a scratch folder, emptied first
#   OUTPUT      the .tar.gz to write
#   VERSION     the product version
#   TAR         GNU tar
foreach(var SOURCE_DIR FILES STAGE_DIR OUTPUT VERSION TAR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "pack.cmake: ${var} is not set")
  endif()
endforeach()

file(REMOVE_RECURSE "${STAGE_DIR}")
file(MAKE_DIRECTORY "${STAGE_DIR}/app")

set(packed "")
foreach(name IN LISTS FILES)
  if(name MATCHES "^(.*)\\.in$")
    set(target "${CMAKE_MATCH_1}")
    configure_file("${SOURCE_DIR}/${name}" "${STAGE_DIR}/app/${target}" @ONLY)
  else()
    set(target "${name}")
    configure_file("${SOURCE_DIR}/${name}" "${STAGE_DIR}/app/${target}" COPYONLY)
  endif()
  list(APPEND packed "${target}")
endforeach()

# Checksums the installer verifies after unpacking, in the format of sha256sum --check.
list(SORT packed)
set(sums "")
foreach(name IN LISTS packed)
  file(SHA256 "${STAGE_DIR}/app/${name}" hash)
  string(APPEND sums "${hash}  ${name}\n")
endforeach()
file(WRITE "${STAGE_DIR}/app/SHA256SUMS" "${sums}")

# Same sources, same bytes: fixed order, owners, modes and times, and no time stamp in the
# gzip header.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(epoch "$ENV{SOURCE_DATE_EPOCH}")
else()
  set(epoch 1704067200)
endif()
get_filename_component(output_dir "${OUTPUT}" DIRECTORY)
file(MAKE_DIRECTORY "${output_dir}")
execute_process(
  COMMAND "${TAR}" --create --file "${OUTPUT}.partial" "--use-compress-program=gzip -n -9"
          --sort=name --owner=0 --group=0 --numeric-owner --mtime=@${epoch}
          --mode=u=rwX,go=rX --format=gnu
          --directory "${STAGE_DIR}" app
  COMMAND_ERROR_IS_FATAL ANY)
file(RENAME "${OUTPUT}.partial" "${OUTPUT}")
