# SPDX-License-Identifier: MIT
#
# cmake -D PROGRAM= -D PPDC= -D SOURCE= -D FOLDER= -D VERSION= -P make_ppd.cmake: makes the PPD files of
# SOURCE in FOLDER, with a choice for each print mode that the program lists and the head has the inks of.
execute_process(COMMAND ${PROGRAM} modes --json OUTPUT_VARIABLE modes COMMAND_ERROR_IS_FATAL ANY)
set(inks4 "CMYK ")
set(inks7 "CcMmYyK ")
set(inks9 "CcMmYyKd ")
string(JSON last LENGTH ${modes})
math(EXPR last "${last} - 1")
foreach(at RANGE ${last})
  string(JSON number GET ${modes} ${at} value)
  string(JSON name GET ${modes} ${at} name)
  string(JSON inks GET ${modes} ${at} inks)
  foreach(head 4 7 9)
    if(inks MATCHES "^[${inks${head}}]+$")
      string(APPEND choices${head}
             "    Choice \"${number}/${number} ${name}\" \"<</cupsInteger9 ${number}>>setpagedevice\"\n")
    endif()
  endforeach()
endforeach()
configure_file(${SOURCE} ${FOLDER}/corvane.drv @ONLY)
execute_process(COMMAND ${PPDC} -d ${FOLDER} ${FOLDER}/corvane.drv COMMAND_ERROR_IS_FATAL ANY)
