#include "catalogue/server/page.h"

namespace catalogue {

const std::vector<TPageFile>& PageFiles() {
    static const std::vector<TPageFile> files = {
        {"/", "text/html; charset=utf-8",
#include "catalogue/server/page/index.html.inc"
        },
        {"/app.js", "text/javascript; charset=utf-8",
#include "catalogue/server/page/app.js.inc"
        },
        {"/style.css", "text/css; charset=utf-8",
#include "catalogue/server/page/style.css.inc"
        },
    };
    return files;
}

}  // namespace catalogue
