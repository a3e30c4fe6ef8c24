/* Where a program starts: what a C run time's own start code does, for programs that are linked without it. */
int main(void);
void exit(int code);

void start(void);
void start(void) { exit(main()); }
