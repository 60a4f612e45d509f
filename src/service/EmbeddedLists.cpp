// The lists that this program carries: the bundle information list (MainBundle::infoDictionary) and
// the job description. Retained sections whose names are C identifiers: the linker gives their
// bounds.
asm(".pushsection __info_plist, \"aR\", @progbits\n"
    ".incbin \"" QV_INFO_PLIST "\"\n"
    ".popsection\n"
    ".pushsection __launchd_plist, \"aR\", @progbits\n"
    ".incbin \"" QV_LAUNCHD_PLIST "\"\n"
    ".popsection\n");
