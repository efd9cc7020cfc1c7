package com.velora.agent;

import com.velora.probe.ProbeController;

import java.io.File;
import java.security.CodeSource;

/**
 * Makes sure that the natives of the boot loader's com.velora classes are there. Started by the native agent
 * they are (the VM looks into the agent library and what it links); started by -javaagent the library has to be
 * loaded here, by a class of the boot loader, so that it belongs to that loader.
 */
final class NativeLibrary {
    private static final String FILE = "libvelora_agent.so";

    private NativeLibrary() {
    }

    static void ensureLoaded() {
        try {
            ProbeController.isJvmpiEnabled();
        } catch (UnsatisfiedLinkError notYet) {
            System.load(besideThisJar());
        }
    }

    private static String besideThisJar() {
        String home = System.getProperty("am.home");
        if (home != null && !home.isEmpty()) {
            File named = new File(new File(home, "lib"), FILE);
            if (named.isFile()) {
                return named.getAbsolutePath();
            }
        }
        return new File(jarFolder(), FILE).getAbsolutePath();
    }

    /** The folder that holds velora.jar: a boot class has no code source, but its class file has an address. */
    private static File jarFolder() {
        CodeSource source = NativeLibrary.class.getProtectionDomain().getCodeSource();
        if (source != null && source.getLocation() != null) {
            return new File(source.getLocation().getPath()).getParentFile();
        }
        String name = NativeLibrary.class.getName().replace('.', '/') + ".class";
        String address = String.valueOf(ClassLoader.getSystemResource(name));
        int start = address.indexOf("file:");
        int end = address.indexOf("!/");
        if (start < 0 || end < start) {
            throw new IllegalStateException("cannot tell where velora.jar lies; set -Dam.home=<agent home>");
        }
        try {
            return new File(new java.net.URI(address.substring(start, end))).getParentFile();
        } catch (java.net.URISyntaxException e) {
            throw new IllegalStateException("cannot read the address of velora.jar: " + address, e);
        }
    }
}
