// Dynamic modules: the platform's loader.
#include <dlfcn.h>
#include <vyx/sys.h>

VYX_HANDLE_DSO VYX_LoadDSo(const char *szPath) {
    return szPath == nullptr ? nullptr : dlopen(szPath, RTLD_NOW | RTLD_GLOBAL);
}

int32_t VYX_UnloadDSo(VYX_HANDLE_DSO hDso) {
    return hDso == nullptr || dlclose(hDso) != 0 ? VYX_ERROR : VYX_OK;
}

void *VYX_GetDsoSym(VYX_HANDLE_DSO hDso, const char *szName) {
    return hDso == nullptr || szName == nullptr ? nullptr : dlsym(hDso, szName);
}
