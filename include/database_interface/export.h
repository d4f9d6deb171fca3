// Export macro of the database_interface shared library. The project's own
// tests link a static build of it, which defines DATABASE_INTERFACE_STATIC.
#ifndef DATABASE_INTERFACE_EXPORT_H_
#define DATABASE_INTERFACE_EXPORT_H_

#if defined(DATABASE_INTERFACE_STATIC)
#define DATABASE_INTERFACE_EXPORT
#elif defined(_WIN32)
#if defined(DATABASE_INTERFACE_BUILDING)
#define DATABASE_INTERFACE_EXPORT __declspec(dllexport)
#else
#define DATABASE_INTERFACE_EXPORT __declspec(dllimport)
#endif
#else
#define DATABASE_INTERFACE_EXPORT __attribute__((visibility("default")))
#endif

#endif  // DATABASE_INTERFACE_EXPORT_H_
