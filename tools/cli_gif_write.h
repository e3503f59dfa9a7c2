// cli_gif_write.h: the commands that write GIF files (encode, resave) and the GIF output of
// quantize.
#pragma once

#include <qimg/qimg.h>

#include <string>

class ArgList;

int command_encode(ArgList& args);
int command_resave(ArgList& args);

// Whether `path` names a GIF file (ends in .gif, any case).
bool has_gif_extension(const std::string& path);
// Writes one indexed image as a still GIF: its colour map as the global table, the map's first
// transparent entry as the transparent index. An exit status; messages name `path`.
int write_indexed_gif(const std::string& path, const qIIndexImage& image);
