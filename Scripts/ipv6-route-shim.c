/* Wine's GetAdaptersAddresses fails with ERROR_INVALID_DATA when it asks for prefixes and the kernel lists the
 * null route of the loopback device, which every network namespace has and none can remove. Preloaded into Wine,
 * this hides that one line of /proc/net/ipv6_route. No headers, so that tcc builds it without a C library's
 * development files. */
typedef struct File FILE;
extern void *dlsym(void *, const char *);
extern int strcmp(const char *, const char *);
extern int strncmp(const char *, const char *, unsigned long);
extern char *strstr(const char *, const char *);
extern char *fgets(char *, int, FILE *);
extern int fputs(const char *, FILE *);
extern FILE *tmpfile(void);
extern void rewind(FILE *);
extern int fclose(FILE *);

static FILE *(*real_fopen)(const char *, const char *);

FILE *fopen(const char *path, const char *mode) {
  char line[512];
  FILE *routes, *kept;
  if (!real_fopen) real_fopen = (FILE * (*)(const char *, const char *)) dlsym((void *)-1, "fopen");
  routes = real_fopen(path, mode);
  if (!routes || strcmp(path, "/proc/net/ipv6_route")) return routes;
  kept = tmpfile();
  if (!kept) return routes;
  while (fgets(line, sizeof line, routes))
    if (strncmp(line, "00000000000000000000000000000000 00", 35) || !strstr(line, " 00000000000000000000000000000000 ffffffff "))
      fputs(line, kept);
  rewind(kept);
  fclose(routes);
  return kept;
}

FILE *fopen64(const char *path, const char *mode) { return fopen(path, mode); }
