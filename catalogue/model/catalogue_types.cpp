#include "catalogue/model/catalogue_types.h"

namespace catalogue {

const char* KindName(EKind kind) {
    switch (kind) {
        case EKind::kDir: return "dir";
        case EKind::kLink: return "link";
        case EKind::kFile: break;
    }
    return "file";
}

const char* ChangeName(TChange::EWhat what) {
    switch (what) {
        case TChange::kRemoved: return "removed";
        case TChange::kChanged: return "changed";
        case TChange::kAdded: break;
    }
    return "added";
}

}  // namespace catalogue
