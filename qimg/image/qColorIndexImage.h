// qColorIndexImage.h: qColorIndexImage, an index image with a palette of its own.
//
// Owns a qIndexImage and a private qColormap that the index image refers to, so its palette can
// be edited: colours and transparency are changed in the own map, never in the map of the image
// it was copied from. qImageProxy::Set makes one from every index image a caller hands over.
//
//   qColorIndexImage image;
//   image.copy_from(&caller_image);   // indices, a copy of the map, the transparent index
//   image.set_transparent(3);         // entry 3 of the own map gets alpha 0
//
// Two kinds of transparency meet here: the index image keeps the transparent index it was copied
// with (always drawn transparent), while the palette edits change only the own map's alphas.
// set_opaque_all() therefore does not make a copied transparent index opaque.
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qImageBuffer.h"

class qColormap;
class qIMonitor;
class qIndexImage;

class QIMG_API qColorIndexImage : public qILeaf, public qIIndexImage {
public:
    qColorIndexImage() = default;
    // Destroys the index image, then the colour map.
    ~qColorIndexImage() override;
    qColorIndexImage(const qColorIndexImage&) = delete;
    qColorIndexImage& operator=(const qColorIndexImage&) = delete;

    // Replaces the index image by a new one with a buffer of `size` pixels of `type` (see
    // qIndexImage::Create_buffer) and links it to the own colour map when there is one.
    // ST_OK; ST_NO_MEMORY when the new image cannot be allocated (no index image is held then); the
    // buffer's codes otherwise, the new empty index image staying held.
    int Create_buffer(qSize size, qPixelType type);
    // Replaces the own colour map by a copy of `source` and links the index image to it.
    // ST_OK; ST_BAD_ARGUMENT for a null source or one with no or more than 256 entries;
    // ST_NO_MEMORY when memory runs out. After a failure no colour map is held and the index image
    // refers to none.
    int copy_colormap(const qIColormap* source);
    // Empties this image, then copies `source`: its indices, a copy of its colour map, and its
    // min_t_index() as the index image's transparent index.
    // ST_OK; ST_BAD_ARGUMENT for a null or invalid source; ST_NO_MEMORY when memory runs out or the
    // source's map cannot be copied; the index copy's codes otherwise. Empty after a failure.
    int copy_from(const qIIndexImage* source);
    // qIndexImage::map_from_image on the held index image; ST_BAD_ARGUMENT when none is held.
    int map_from_image(const qIImageBuffer* source, qQuantizer quantizer, bool opaque,
                       float color_strength, float alpha_strength, qIMonitor* monitor,
                       qCmapType palette_kind = CM_ADAPTIVE);

    // ---- qIComponent / qILeaf --------------------------------------------------------------
    // A new qColorIndexImage with new indices and a new colour map; null when this image is not
    // valid or memory runs out. The clone's transparent index is this image's min_t_index().
    qIComponent* clone() const override;
    // The index image's Draw; ST_BAD_ARGUMENT when no index image is held.
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const override;
    // A valid index image and an own colour map with at least one entry.
    bool valid() const override;
    // The index image's size; (0, 0) without one.
    qSize size() const override;
    // The own colour map's kind (the index image's transparent index is not consulted);
    // AT_NONE without a map.
    qAlphaType alpha_hint() const override;
    // The own colour map (borrowed); null without one.
    const qIColormap* colormap() const override;
    // The index image's pixel_index; -1 without one.
    int pixel_index(qPoint point) const override;
    qComponentType component_type() const override { return CT_INDEX_IMAGE; }
    qIComponent* current_leaf() const override;
    qComponentType leaf_type() const override { return CT_INDEX_IMAGE; }

    // ---- qIImageBuffer: the index image's pixels (null and type 0 without one) -------------
    unsigned char* pixel_address(int row, int column) const override;
    qPixelType pixel_type() const override;

    // ---- qIIndexColor: edits of the own colour map ------------------------------------------
    // None of them touches the index image's transparent index. Each is refused (nothing done,
    // false) without a colour map or for an index outside it.
    // Every entry gets alpha 255.
    void set_opaque_all() override;
    // Entry `index` gets alpha 0.
    bool set_transparent(int index) override;
    // Every entry gets alpha 255, then entry `index` alpha 0.
    bool set_ex_transparent(int index) override;
    // Entry `index` becomes `color`, alpha included.
    bool set_color(int index, qPixRA color) override;
    // -1 when not valid; else the own colour map's lowest entry with alpha 0 (-1 for none).
    int min_t_index() const override;

private:
    // Destroys the index image, then the colour map.
    void clear();

    qIndexImage* index_image_ = nullptr;
    qColormap* colormap_ = nullptr;
};
