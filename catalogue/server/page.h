#pragma once
// The web page: HTML, CSS and JavaScript kept in page/ and built into the
// program (no build step of their own), served at these paths.

#include <vector>

namespace catalogue {

struct TPageFile {
    const char* path;  // "/", "/app.js", "/style.css"
    const char* type;  // its Content-Type
    const char* content;
};

const std::vector<TPageFile>& PageFiles();

}  // namespace catalogue
