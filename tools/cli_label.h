// cli_label.h: a tiny pixel font for the contact sheet's frame labels.
#pragma once

#include <qimg/qimg.h>

#include <string>

// Width in pixels of `text` drawn at `scale`.
int label_width(const std::string& text, int scale);
// Height in pixels of a line of text at `scale`.
int label_height(int scale);
// Draws `text` (digits, space, ':', 'm', 's', 'x'; other characters as blanks) with its top-left
// corner at (x, y) in `colour`, clipped to the view.
void draw_label(qImageEdit& view, int x, int y, const std::string& text, int scale,
                const unsigned char colour[4]);
