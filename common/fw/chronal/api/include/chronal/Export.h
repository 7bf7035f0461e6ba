#ifndef CHRONAL_EXPORT_H
#define CHRONAL_EXPORT_H

/// Marks what the library exports; everything else stays inside it.
#define CHRONAL_API __attribute__((visibility("default")))

#endif
