#ifndef KESTA_SUPPORT_EXPORT_H
#define KESTA_SUPPORT_EXPORT_H
// Export macros. Both libraries build with hidden visibility; what a consumer may name carries
// one of these. On ELF both expand to the same attribute; they are kept apart so that a
// platform with import/export rules can tell the two libraries apart.

#define KESTA_SUPPORT_API __attribute__((visibility("default")))
#define KESTA_API __attribute__((visibility("default")))

#endif
