#ifndef KIRA_EXPORT_H
#define KIRA_EXPORT_H

// The library is built with hidden visibility; only what carries this mark
// reaches the dynamic symbol table (see exports/*.txt).
#define KIRA_EXPORT __attribute__((visibility("default")))

#endif
