# Packs vellux_flare.zip: the add-on's sources, and this build installed into its engine/ folder
# (what the add-on needs of it: the Python module, the libraries, the plug-in, the tables).
#   cmake -DBUILD_DIR=... -DADDON_DIR=... -DZIP=... -P addon_zip.cmake
set(stage ${BUILD_DIR}/blender/zip)
set(engine ${stage}/vellux_flare/engine)
file(REMOVE_RECURSE ${stage})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${engine} --strip RESULT_VARIABLE failed OUTPUT_QUIET)
if(failed)
  message(FATAL_ERROR "installing the engine into the add-on failed")
endif()
file(REMOVE_RECURSE ${engine}/bin ${engine}/lib/libvellux_tool_images.so ${engine}/lib/frei0r-1 ${engine}/share/kdenlive ${engine}/share/vellux/blender)
file(GLOB sources ${ADDON_DIR}/*.py)
file(COPY ${sources} DESTINATION ${stage}/vellux_flare)
execute_process(COMMAND ${CMAKE_COMMAND} -E tar cf ${ZIP}.part --format=zip vellux_flare
                WORKING_DIRECTORY ${stage} RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "packing ${ZIP} failed")
endif()
file(RENAME ${ZIP}.part ${ZIP})
file(REMOVE_RECURSE ${stage})
