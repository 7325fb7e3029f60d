# Writes the commit that is built to OUTPUT, as a C string, unless it is there already. Without a
# repository it is what OVIX_COMMIT of the environment says.
execute_process(COMMAND git -C ${SOURCE} describe --always --abbrev=12 --exclude=* --dirty=+changes
                OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
if(failed)
  set(commit "$ENV{OVIX_COMMIT}")
endif()
if(commit STREQUAL "")
  set(commit unknown)
endif()
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT "\"${commit}\"\n")
