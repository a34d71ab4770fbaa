/* Debian's static libtirpc carries its RPCSEC_GSS code, whose Kerberos
 * library has no static build. The guest program only sends AUTH_NONE and
 * AUTH_UNIX calls, so each GSS-API entry it links answers GSS_S_FAILURE. */
#define GSS_FAILURE 0xD0000u
#define STUB(name)          \
    unsigned name(void);    \
    unsigned name(void)     \
    {                       \
        return GSS_FAILURE; \
    }

void *GSS_C_NT_HOSTBASED_SERVICE = 0;
void *GSS_C_NT_USER_NAME = 0;
STUB(gss_accept_sec_context)
STUB(gss_acquire_cred)
STUB(gss_canonicalize_name)
STUB(gss_delete_sec_context)
STUB(gss_display_name)
STUB(gss_display_status)
STUB(gss_duplicate_name)
STUB(gss_export_name)
STUB(gss_get_mic)
STUB(gss_import_name)
STUB(gss_init_sec_context)
STUB(gss_pname_to_uid)
STUB(gss_release_buffer)
STUB(gss_release_cred)
STUB(gss_release_name)
STUB(gss_sign)
STUB(gss_unwrap)
STUB(gss_verify_mic)
STUB(gss_wrap)
STUB(gss_wrap_size_limit)
