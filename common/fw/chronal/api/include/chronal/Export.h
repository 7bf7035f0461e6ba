#ifndef CHRONAL_EXPORT_H
#define CHRONAL_EXPORT_H

/// Marks what the library exports. All its other symbols are hidden.
#define CHRONAL_API __attribute__((visibility("default")))

#endif
