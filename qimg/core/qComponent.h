// qComponent.h: the component interfaces every image object implements.
//
//   qIComponent  any image: draw, query size, transparency kind, palette, pixel indices
//   qILeaf       an image that owns pixels (qDirectImage, qIndexImage, qColorIndexImage)
//   qIFrame      a component placed on a logical screen, with colour operations
//   qIAnimation  a frame holding a sequence of frames and a current-frame cursor
//
// Holders keep components as qIComponent pointers and ask for a further capability with
// dynamic_cast; a null answer means the capability is absent. The order of the virtual
// operations is part of the interface.
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qTypes.h"

class qIColormap;
class qIMonitor;
class qImageEdit;

class QIMG_API qIComponent {
public:
    virtual ~qIComponent();
    // A new, independent deep copy, owned by the caller; null when memory runs out or the
    // component is not valid.
    virtual qIComponent* clone() const = 0;
    // Draws into `target`: `rect` is the target area to fill; `point` is the position in the
    // component's image (magnified by the scale factors) whose pixel lands on rect's top-left
    // corner; the area is clipped to both, sampled nearest-neighbour when scaled; factors 1.0
    // give an unscaled copy; `opaque` asks for a plain copy ignoring transparency. ST_OK;
    // ST_BAD_ARGUMENT for a null target; otherwise the codes of the transfer into the view
    // (qImageEdit::BitBlt, ScaledBlt), such as ST_UNSUPPORTED for a target it cannot draw into.
    virtual int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
                     bool opaque) const = 0;
    // The component holds a usable image.
    virtual bool valid() const = 0;
    // Pixel size of a leaf; logical screen size of a frame decorator or animation; extent on the
    // screen of a GIF frame. (0, 0) when empty.
    virtual qSize size() const = 0;
    virtual qAlphaType alpha_hint() const = 0;
    // The colour map of an indexed image (borrowed); null for true colour and when empty.
    virtual const qIColormap* colormap() const = 0;
    // The colour index at `point` (screen coordinates for a frame); -1 where there is none.
    virtual int pixel_index(qPoint point) const;
    virtual qComponentType component_type() const = 0;
    // The leaf shown now (borrowed): a leaf returns itself; null when there is none.
    virtual qIComponent* current_leaf() const = 0;
};

class QIMG_API qILeaf : public qIComponent {
public:
    ~qILeaf() override;
    // The same value as component_type().
    virtual qComponentType leaf_type() const = 0;
};

class QIMG_API qIFrame : public qIComponent {
public:
    ~qIFrame() override;
    // Colour reduction: the image becomes 8-bit indices into a palette of its own.
    //
    // Generated palette: CM_ADAPTIVE is a median cut of the image's pixels whose alpha is at
    // least `min_alpha`, CM_QUALITY the least-error palette of them (mapped to the exact nearest
    // colour, and dithered so that flat areas and edges stay clean: qIndexImage::map_from_image),
    // CM_CUBE a colour cube, CM_GRAY a grey ramp, each of at most `num_colors` entries, the last
    // one transparent white when `opaque` is false (sizes above 256 are clamped to the palette's
    // room); then the given-map form with that palette.
    // ST_UNSUPPORTED for any other cmap_type.
    virtual int quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer,
                                bool opaque, float color_strength, float alpha_strength,
                                unsigned char min_alpha, qIMonitor* monitor) = 0;
    // Given map: every pixel is mapped to a copy of `colormap` (the caller keeps its object), to
    // the nearest entry with QT_NEAREST, else with error diffusion (`color_strength`; an
    // `alpha_strength` above 0 diffuses alpha too; strengths are taken as qImageEdit::
    // dither_colors takes them: NaN as 0, infinities as the largest finite values). With
    // `opaque` false, transparent pixels take the map's first alpha-0 entry.
    //
    // Both forms: ST_OK; ST_CANCELLED when the monitor stopped the mapping; ST_BAD_ARGUMENT for
    // a component without a valid image, a null map or one outside 1..256 entries (CM_GRAY with
    // num_colors < 1 and `opaque` true makes an empty one); ST_UNMAPPABLE for a pixel without
    // index (a transparent pixel and a map without alpha-0 entry); ST_NO_MEMORY. Whatever fails,
    // the image stays as it was.
    virtual int quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                                float color_strength, float alpha_strength, qIMonitor* monitor) = 0;
    // 0, or ST_NOT_IMPLEMENTED where the frame keeps no screen size of its own.
    virtual int set_screen_size(qSize size) = 0;
    // Position of the frame's image on the logical screen; 0 (ST_BAD_ARGUMENT from an animation
    // without a current frame).
    virtual int set_offset(qPoint offset) = 0;
    virtual qPoint offset() const = 0;
    // A representative colour of the image; (0, 0, 0, 0) when it cannot be worked out.
    virtual qPixRA get_rep_color() const = 0;
};

class QIMG_API qIAnimation : public qIFrame {
public:
    ~qIAnimation() override;
    // Display time of the current frame in milliseconds; 0 without graphic control; -1 without
    // a current frame.
    virtual int frame_delay() = 0;
    virtual int num_frames() = 0;
    virtual int current_frame() = 0;
    // Disposal method of the current frame; 0 when none.
    virtual int frame_disposal() = 0;
    // The current frame's rectangle on the screen; all zero without a current frame.
    virtual qRect frame_rect() = 0;
    // The current frame becomes 0 and the count of completed passes 0.
    virtual void rewind() = 0;
    // Origin 1 counts from the current frame, 2 from num_frames(), anything else from 0. An
    // index inside the frames becomes current (0); otherwise nothing changes (ST_BAD_ARGUMENT).
    virtual int seek_frame(int position, int origin) = 0;
    // Advances the cursor, wrapping after the last frame and counting passes; unless `endless`,
    // once the passes reach a positive loop count the cursor stays on the last frame and the
    // result is 2; otherwise 0.
    virtual int next_frame(bool endless) = 0;
};
