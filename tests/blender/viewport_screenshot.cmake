# The viewport flare in Blender's window: the example scene made headless, then opened in Blender
# with its interface on a virtual X display (xvfb-run), where viewport_screenshot_test.py takes
# and checks its screenshots.
#   cmake -DBLENDER=... -DXVFB_RUN=... -DSOURCE=... -DWORK=... -P viewport_screenshot.cmake
# (with the add-on on BLENDER_USER_SCRIPTS and the vellux module on PYTHONPATH)
file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND ${BLENDER} -b --factory-startup --addons vellux_flare --python-exit-code 1
                        --python ${SOURCE}/blender/examples/flare_scene.py -- ${WORK}/viewport.blend 480 270 1
                RESULT_VARIABLE failed OUTPUT_VARIABLE made ERROR_VARIABLE made)
if(failed)
  message(FATAL_ERROR "making the example scene failed:\n${made}")
endif()
# A file named on the command line opens without the splash screen, which would cover the view.
execute_process(COMMAND ${XVFB_RUN} -a -s "-screen 0 1280x720x24"
                        ${BLENDER} --factory-startup ${WORK}/viewport.blend --addons vellux_flare --python-exit-code 1
                        --python ${SOURCE}/tests/blender/viewport_screenshot_test.py -- ${WORK}
                RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "the viewport's screenshots failed their checks (${failed}); they are in ${WORK}")
endif()
