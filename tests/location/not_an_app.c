/* A DLL with valid headers: identity must refuse it as an application. */
__declspec(dllexport) int brisa_test_export(void) { return 1; }
