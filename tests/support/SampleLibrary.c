int qvSampleLibraryFunction(void);
int qvSampleLibraryFunction(void) { return 1; }
