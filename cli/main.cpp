// quelmor: retimes clips on disk with motion vectors.
#include <cstdio>
#include <cstring>

#include "CommandLibrary.h"

namespace {

constexpr const char* kUsage = R"(usage: quelmor COMMAND ARGUMENTS [options]

commands:
  retime INPUT OUTPUT   retime a clip with the engine
      --speed S             source frames per output frame (0.25: four times slower)
      --fps F               output frames per second at the input's pace (24 fps to --fps 60
                            makes 2.5 times the frames); the input's rate comes from a video
                            file, an image sequence's metadata or --input-fps
      --input-fps F         frames per second of the input, over what it says
      --speed-curve FILE    keyed speed per output frame ("frame value" lines, linear between keys)
      --frame-curve FILE    keyed source frame per output frame
      --scenes FILE         keyed scene per source frame (held values: 0/1 cut A, 2 cut B, 3 cut C,
                            4 no motion nearest, 5 no motion blend)
      --frames A-B          render output frames A to B only (numbered as the output files)
      --interpolation NAME  nearest, blend (default), weighted
      --quality NAME        none, sloppy, medium, high, best (default), full (vectors at the
                            frame's own size: slowest)
      --warping NAME        inverse (default): both frames pulled along the vectors, edges
                            stretched where a frame has nothing; smart: inverse + smart blend,
                            each pixel mixed from the frames that see it, the rest filled in;
                            forward: each frame pushed along its own vectors, so moving edges
                            keep their shape, mixed from the frames that reach each pixel, the
                            rest filled in; forward-alone: forward with the holes left empty
      --motion-blur X       motion blur amount, 0 (default) to 5
      --matte PATTERN       a foreground layer cut out by this matte sequence (its first channel),
                            or by the input's own alpha with --matte alpha; repeat for several
                            layers, frontmost first (at most 9)
      --matte-shrink PX     grow each foreground matte by PX pixels before the layers behind it
                            are cut out (0 default, fractions allowed)
      --layer-sensitivity S motion sensitivity of the foreground layers, 0 to 1 (default 1)
      --draw WHICH          all (default), foreground or background: the layers drawn
      --rate FPS            frame rate of a video output (default: the input's)
      --overwrite           replace existing output files
      --resume              keep the output frames already there and render only the missing
                            ones (image sequences; with --frames, within those frames)
      --print-frames        print the output frames A-B this run makes, write nothing
      --resize WxH          zoom the output frames to WxH (8-bit, 16-bit and float frames)
      --filter NAME         kernel of --resize: bspline-table (default), bspline, mitchell,
                            lanczos, quadratic, triangle, hermite
      --threads N           workers for the engine and the writers, 1 to 64 (default: every
                            core this process may use)
      --quiet               no progress
      --timing              print where the time went (decoding, converting, engine, writing)
      --points FILE         motion given by hand: named points and curves per source frame (see
                            POINTS FILES below); by default they steer the optical flow
      --motion flow|points  flow (default): optical flow, steered by --points; points: motion
                            from the points alone, spread smoothly over the frame
      --show-geometry       draw the points (crosses) and curves of --points over the output
      --channel-mix NAME=nearest|blend[,...]
                            how extra channels (beyond R, G, B, A) are mixed between frames:
                            nearest takes one source sample along the vectors, blend mixes like
                            the picture; by default depth (Z, depth), ids (...id) and crypto
                            mattes are nearest, the rest blend. NAME is a channel's whole name
                            or the part after its last dot
      --vectors PATTERN     motion read from vector files instead of computed: files that
                            quelmor vectors writes, or a renderer's motion pass in EXR (see
                            VECTOR FILES); each pair of source frames needs the forward vectors
                            of the first or the backward vectors of the second, the other
                            direction is derived. One layer only (no --matte, no --points)
      --vector-scale SX SY  multiply every vector read by SX across and SY down (-1 -1 for a
                            pass whose vectors point to the frame before, 1 -1 for y up)
      --alpha premultiplied|straight
                            how the input's colour relates to its alpha; by default as its
                            format says: EXR premultiplied, PNG and TGA straight, TIFF as it is
                            marked (straight when marked unassociated, else premultiplied).
                            Colour is mixed in the input's convention and written in the
                            output's (EXR premultiplied, PNG and TGA straight, TIFF and DPX as
                            the input)
  vectors INPUT OUTPUT  write the motion between every pair of neighbouring source frames as
                        vector files (OUTPUT name.%04d.exr or name.%04d.flo, see VECTOR FILES),
                        as the engine finds it with the settings of retime
      --show                write colour-coded pictures of the forward vectors instead (hue:
                            direction, saturation: length, white: still; black arrows every 16
                            pixels), one per pair, in any image format of retime
      --quality NAME  --overwrite  --threads N  --quiet
  spark INPUT OUTPUT    retime a clip by running the plug-in as its host does
      --speed S  --interpolation NAME  --quality NAME  --motion-blur X
      --fields-in none|lower|upper  --fields-out none|lower|upper
      --setup FILE.setup    panel values to load first (and where the host saves them)
      --speed-curve FILE  --scenes FILE   curve mode: speed and scene cuts from key files
      --plugin PATH  --rate FPS  --overwrite  --threads N  --quiet  --timing
  synth OUTPUT          render a synthetic test clip, its true in-between frames (true_*) and
                        the matte of its foreground objects at each source frame (matte_*)
      --frames N  --size WxH  --steps K  --depth 8|16|half|float  --threads N  --overwrite  --quiet
      --points FILE         also write the true motion of a few points of each object there
  score RESULT TRUTH    PSNR of a result against true frames
  dissolve A B OUTPUT   a transition from the last frame of shot A to the first of shot B,
                        both pulled along the flow between them (8-bit output)
      --frames N            frames between the two shots (default 12)
      --mode NAME           bands (default: warped, mixed band by band), warp, marks,
                            still-bands (no warp), plain, nearer, nearest
      --threads N  --overwrite  --quiet

INPUT and OUTPUT are image sequences (name.%04d.exr, name.####.dpx, PNG, TIFF, JPEG) or video
files (any common container in; .mov ProRes or .mp4 H.264 out).

VECTOR FILES (vectors OUTPUT, retime --vectors): one set per source frame, in pixels of the frame,
x right, y down, at the frame's size. Forward vectors lead from the frame to the next one,
backward vectors to the one before.
  name.%04d.exr               float channels forward.u, forward.v, backward.u, backward.v (zero
                              where the frame has no neighbour). Read also: one of the pairs
                              alone, u/v, a layer named motion, vector(s) or velocity, or else the
                              first two channels, taken as forward vectors
  name.%04d.flo               Middlebury flow files: name.0001.forward.flo, name.0001.backward.flo
With --quality full the vectors are the engine's own, and a retime by them makes the same frames
as one that computes them with the same settings; at other qualities they are resampled from
the smaller flow the engine computes, and the frames differ slightly.

POINTS FILES (--points): lines of text, '#' starts a comment.
  frame N                     positions below are in source frame N (numbered as the input's
                              files; a video's first frame is 0)
  point NAME X Y              point NAME is at (X, Y)
  curve NAME X1 Y1 X2 Y2 ...  polyline NAME runs through two or more points (at most 2048)
Positions are pixels of the source frame: x right, y down, (0, 0) the top-left pixel's centre.
A name in two frames says where that point or curve moves from one to the other; a curve may
slide along itself. A name is a point or a curve throughout, once per frame. A bad line is
refused with its number and what was expected there.
A tracker's export in the Shake track file format is read too (a file starting "TrackName"):
  TrackName NAME              a track, a point named NAME, then one line per frame:
  FRAME X Y [CORRELATION]     frame 1 is the input's first frame; (0, 0) is the lower-left
                              corner of the frame and y runs up; the correlation is not used
)";

} // namespace

int main(int argc, char** argv) {
    using namespace quelmor::cli;
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") ||
        !std::strcmp(argv[1], "help")) {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    // Everything past the usage runs in the commands library, loaded only now.
    return RunCommandFromLibrary(argc, argv);
}
