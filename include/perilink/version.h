/* The version of perilink, for the preprocessor. This is the one place where it stands: the build,
 * the DLL's resource, perictl, the manual pages and the packages read it here. What a version
 * promises: docs/stability.md. */
#ifndef PERILINK_VERSION_H_
#define PERILINK_VERSION_H_

#define PERILINK_VERSION_MAJOR 0
#define PERILINK_VERSION_MINOR 1
#define PERILINK_VERSION_PATCH 0

/* For comparisons, as in #if PERILINK_VERSION >= PERILINK_VERSION_OF(0, 2, 0). */
#define PERILINK_VERSION_OF(major, minor, patch) ((major)*1000000L + (minor)*1000L + (patch))
#define PERILINK_VERSION \
  PERILINK_VERSION_OF(PERILINK_VERSION_MAJOR, PERILINK_VERSION_MINOR, PERILINK_VERSION_PATCH)

/* "0.1.0" */
#define PERILINK_VERSION_QUOTE_(value) #value
#define PERILINK_VERSION_DOTTED_(major, minor, patch) \
  PERILINK_VERSION_QUOTE_(major)                      \
  "." PERILINK_VERSION_QUOTE_(minor) "." PERILINK_VERSION_QUOTE_(patch)
#define PERILINK_VERSION_TEXT \
  PERILINK_VERSION_DOTTED_(PERILINK_VERSION_MAJOR, PERILINK_VERSION_MINOR, PERILINK_VERSION_PATCH)

#endif /* PERILINK_VERSION_H_ */
