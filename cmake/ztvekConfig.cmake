# The package may be found through a link, as in /usr/share/cmake; the library lies beside the file.
get_filename_component(ztvek_file "${CMAKE_CURRENT_LIST_FILE}" REALPATH)
get_filename_component(ztvek_folder "${ztvek_file}" DIRECTORY)
include("${ztvek_folder}/ztvekTargets.cmake")
