# cmake -DFILE=host_c.raw -P CheckEnd.cmake : the tones of host.c were heard to their ends. The rate
# converter delays one of them by 34 frames, so that frames 96010 to 96025 have the last of it.
file(READ ${FILE} end OFFSET 384040 LIMIT 64 HEX)
if(NOT end MATCHES "[1-9a-f]")
    message(FATAL_ERROR "${FILE}: the end of a tone is missing")
endif()
