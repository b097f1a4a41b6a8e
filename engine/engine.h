// The Vellux engine: the rendering pipeline behind every front end (the vellux tool, the frei0r
// filter, the Python module). A front end includes this header and calls what it lists; each
// section names the header that declares its entries.
//
// Common principles
//   Errors     every failure throws: PluginError (a std::runtime_error with the plug-in's result
//              code) for a command the plug-in refused, in its own words; std::invalid_argument for
//              a value out of range, naming the option or field; std::runtime_error for the rest,
//              naming the file. A front end shows what() as it is.
//   Threads    a Flare serves one thread at a time; Flares on different threads render at once,
//              each with its own private copy of the plug-in (the plug-in keeps process statics).
//   Loading    the engine works however it was loaded: into a program's global scope (the tool)
//              or a local one (a video host's filter, a Python module); the host's services are
//              made global before the plug-in is loaded.
//   Libraries  libvellux_engine_core.so holds what needs no image library: finding things, flare
//              instances up to their plug-in side, scenes, frame lists, keying, the settings
//              dialog, the plug-in's description; libvellux_engine.so (which links it) the images,
//              colour, occlusion and rendering. A program starts several times faster without the
//              image library, so the tool links only the core (tools/vellux/image_actions.h).
//   Images     OpenImageIO ImageBufs, kept whole: the flare changes a plate's colour channels
//              and nothing else (plate.h). Every plate takes one route (Flare::Composite): the
//              flare painted alone on black, then blended in (blend.h); 8-bit and 16-bit sRGB
//              plates take the plug-in's own 32-bit and 48-bit pixels, every other plate the
//              flare's float levels, lifted past the plug-in's full level (hdr_pass.h).
//   Colour     the plug-in paints display-referred (sRGB) levels; each blend works in its own
//              space (display levels, or linear light for add), the plate taken there and back
//              through OpenColorIO (through OpenImageIO).
#ifndef VELLUX_ENGINE_ENGINE_H
#define VELLUX_ENGINE_ENGINE_H

// ---- Finding things ----------------------------------------------------------------------------
#include "engine/plugin_location.h"
//   FindPlugin(path)                      the plug-in: the path given, else beside the program or this library
//   PluginFolders()                       where FindPlugin looks
#include "engine/table_search.h"
//   FindTable(nameOrPath), ListTables()   flare tables by name: user folder, VELLUX_TABLE_PATH, shipped
//   TableFolders(), FindDefaultTable()    where they are looked for; the one named Vellux

#include "engine/closest_match.h"
//   ClosestMatch(given, names)            "did you mean" for a mistyped name

// ---- A flare instance --------------------------------------------------------------------------
#include "engine/flare.h"
//   FlareSetup                            plug-in, table, settings record, setting edits, private or shared copy
//   Flare(setup)                          loads the plug-in, INIT, the edits
//   Flare::Composite(plate, light, opts)  the plate with the flare, blended as opts.blend says, in its pixel type
//   Flare::CompositeBlack(size, light, o) the same on a black 16-bit frame: the plug-in's frame itself
//   Flare::Pass(size, light, bands, space) the flare alone on black, float RGBA past 1.0, in a colour space
//   Flare::PassInto(size, light, space, rgba)  the same into memory kept from frame to frame (rows bottom up if asked)
//   Flare::SetProgress / SetCancel        the plug-in's reports; the flag that stops it
//   Flare::SetThreads(n)                  each frame painted on n threads (0: every core), the same pixels
//   Flare::Paint(pixels, light)           the plug-in's frame into the caller's memory, on those threads
//   CheckFlareTable(path)                 throws unless the file is a flare table
#include "engine/flare_instance.h"
//   FlareLight                            position (pixels), colour, intensity, radius
//   PluginInstance                        the commands themselves: channels, SETF, GENF, INTF
//   RenderFrame(instance, light, pixels)  SETF and GENF into PluginPixels or a PixelView of the caller's memory
#include "engine/frame_bands.h"
//   FrameBands(height)                    the fixed partition every frame is painted in, a SETF per band
//   PaintFrameBands(painters, ...)        those bands on one thread per plug-in copy, progress and cancel shared
#include "engine/row_parts.h"
//   ForRowParts(rows, threads, ...)       row-by-row work (levels, conversions, copies) a part on each core
#include "engine/plugin_settings.h"
//   SettingEdits, CheckSettingEdits       changes to the plug-in's settings record, checked
#include "engine/setting_assignments.h"
//   ParseSettingAssignments(text)         "ring-size=1.5 halo=off" as edits, and back

// ---- Images and colour -------------------------------------------------------------------------
#include "engine/frame_image.h"
//   FrameImage::Read / Black / FromImage  a plate in the plug-in's terms
//   CheckFrameMemory(size, bytes, what)   says how much memory a frame needs when there is not enough
//   CheckOutputFormat(path)               throws unless the image library writes this extension
#include "engine/plate.h"
//   ReadPlateFile, WritePlateFile         an image file kept whole: every part, channel, attribute
//   LayoutOf, FrameColour, WithFrameColour  where the flare goes in a part, and back
//   WriteImageFile(image, path, type)     one image, atomically, lossless and fast
#include "engine/compression.h"
//   ParseCompression, CheckCompressionFor  png:1, exr:piz...: the writers' compression, checked against the file
#include "engine/frame_memory.h"
//   AdviseFrameMemory, FrameAllocator     frame-sized buffers on huge pages where the kernel grants them
#include "engine/flare_pass.h"
//   FlarePassFromPlugin                   the plug-in's frame painted on black as a float RGBA pass
//   FillPassFromLevels                    float levels as a pass in a colour space
//   PassFileType, WriteFlarePass          a pass's file type by extension; the pass written
#include "engine/blend.h"
//   Blend, ParseBlend, BlendName          display (the plug-in's own add), add (linear light), screen
//   BlendBytes, BlendShorts               the plug-in's 32-bit and 48-bit flare into 8-bit and 16-bit sRGB colour
//   LevelBlender(space, blend)            float levels into float colour in any space, band by band
#include "engine/flare_layer.h"
//   MakeStraightFlareLayer(image)         a flare painted on black as a layer of its own: straight alpha
#include "engine/hdr_pass.h"
//   ExposureBrackets(setup)               darker exposures of one Flare's flare, for levels past its ceiling
//   ExposureBrackets::Levels(control, light, painted, rgb)  the levels, up to 256x the full level
#include "engine/colour.h"
//   ChooseColorspace(option, name, float) the plate's space, by name or by pixel type
//   ConvertPass(pass, space)              the pass into a colour space, tagged oiio:ColorSpace
//   LevelTablesFor(space)                 that conversion of every 16-bit level, channel by channel

// ---- A lens's own flare -----------------------------------------------------------------------
#include "engine/lens_look.h"
//   LensLook(options), LensLook::Paint    a lens's starburst and traced ghosts from its prescription
//   FindLens(name), LensFolders()         lenses by name: VELLUX_LENS_PATH, shipped
#include "engine/lens_sheet.h"
#include "engine/look_sheet.h"
//   LensSheet, WriteLensSheet             a contact sheet: a row per f-number, a column per light position
//   LookSheet, WriteLookSheet             a contact sheet of every table and lens, a cell each

// ---- Occlusion ---------------------------------------------------------------------------------
#include "engine/occlusion.h"
//   OcclusionMask::Read, OccludedLight    a mask's coverage of the light's disc dims the light

// ---- Scenes ------------------------------------------------------------------------------------
#include "engine/scene.h"
//   Scene, ReadSceneFile, WriteSceneFile  a shot: frames, image, light keys, settings, channel keys
//   LightAt, KeyChannels                  the light at a frame; the scene's keys into the channels
#include "engine/scene_keys.h"
//   KeySceneFrames(request)               the settings keyed into the scene's channels
//   DecodeSettings, EncodeSettings,       a settings record field by field in either byte order;
//   ChannelKeysOf                         keys from the store

// ---- Frames and sequences ----------------------------------------------------------------------
#include "engine/frame_sequence.h"
//   FramePattern                          ####, %04d and %d file patterns
#include "engine/frame_list.h"
//   ParseFrameList(option, text)          1-48, 1-48x2, 1,5,10-20, by the image library's reading
#include "engine/render_request.h"
//   RenderRequest, RenderReporting        what to render; progress, finished frames, cancel
#include "engine/frame_render.h"
//   RenderFlareImage(request, reporting)  one frame from files to a file, written atomically
#include "engine/scene_session.h"
//   LoadScene(path), FramesWithin         a scene file read; frames asked for, checked against it
//   SceneSession                          a Flare set up for a scene (channels keyed)
#include "engine/scene_render.h"
//   RenderSceneSequence(request, rep.)    a scene's (or a plate sequence's) frames on request.jobs workers
//   IsSequence(request)                   whether a request renders a sequence

// ---- Lights in footage -------------------------------------------------------------------------
#include "engine/linear_frame.h"
//   ReadLinearFrame(file, space)          a plate's frame as scene-linear float RGB, plain data
#include "engine/light_finding.h"
//   FindLights(frame, threshold)          every light: sub-pixel centre, visible energy, peak, colour
//   BrightestLights, NearestLight         the ones to follow
#include "engine/light_tracking.h"
//   StartFollowing, FollowStep            lights followed step by step: predicted, found in reach, merged or hidden
//   FinishTrack(light, smooth)            keys: interpolated where unsure, intensity the visible fraction
//   SmoothPath(values, sigma)             the zero-phase path filter
#include "engine/footage_tracking.h"
//   TrackFootage, WriteTrackScenes        `vellux track`: a sequence's lights as scenes to render

// ---- Settings dialog and the plug-in's description ---------------------------------------------
#include "engine/dialog_session.h"
//   RunSettingsDialog(source, runner)     INTF on a scene's or settings file's record, saved on OK;
//                                         another table picked in the dialog reopens it on that table
#include "engine/preview_plate.h"
//   PreviewPlate(options)                 the host's backdrop for the dialog's preview: the flare on the
//                                         artist's plate, blended as a render blends it
#include "engine/setting_controls.h"
//   SettingControls, FindSettingControl   the dialog's control for each setting, by its name
#include "engine/plugin_about.h"
//   AskPlugin(library)                    INFO and CHEK

#endif  // VELLUX_ENGINE_ENGINE_H
