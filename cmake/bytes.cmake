# Writes the bytes of FILE to OUTPUT as numbers, to be included by an initialiser.
file(READ ${FILE} bytes HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT} "${bytes}\n")
