import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.commons.ClassRemapper;
import org.objectweb.asm.commons.Remapper;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.Map;
import java.util.TreeMap;
import java.util.jar.Attributes;
import java.util.jar.JarEntry;
import java.util.jar.JarFile;
import java.util.jar.JarOutputStream;
import java.util.jar.Manifest;
import java.util.stream.Stream;
import java.util.zip.CRC32;
import java.util.zip.ZipEntry;

/**
 * Packs velora.jar: our classes and the ASM classes that they need, all references to org.objectweb.asm moved to
 * com.velora.shaded.asm, so that the application's own ASM never meets ours.
 *
 * Usage: Relocator VERSION OUTPUT.jar CLASSES_DIR LIBRARY.jar...
 */
public final class Relocator {
    private static final String FROM = "org/objectweb/asm/";
    private static final String TO = "com/velora/shaded/asm/";
    private static final long FIXED_TIME = 315619200000L; // 1980-01-02: the same input gives the same jar

    private static final class Move extends Remapper {
        @Override
        public String map(String name) {
            return name.startsWith(FROM) ? TO + name.substring(FROM.length()) : name;
        }
    }

    public static void main(String[] args) throws IOException {
        Map<String, byte[]> entries = new TreeMap<>();
        addFolder(entries, Paths.get(args[2]));
        for (int i = 3; i < args.length; i++) {
            addLibrary(entries, args[i]);
        }
        try (JarOutputStream jar = new JarOutputStream(Files.newOutputStream(Paths.get(args[1])))) {
            write(jar, JarFile.MANIFEST_NAME, manifest(args[0], entries.size() + 1));
            for (Map.Entry<String, byte[]> entry : entries.entrySet()) {
                write(jar, entry.getKey(), entry.getValue());
            }
        }
    }

    private static void addFolder(Map<String, byte[]> entries, Path root) throws IOException {
        try (Stream<Path> files = Files.walk(root)) {
            for (Path file : (Iterable<Path>) files.filter(Files::isRegularFile)::iterator) {
                add(entries, root.relativize(file).toString(), Files.readAllBytes(file));
            }
        }
    }

    private static void addLibrary(Map<String, byte[]> entries, String path) throws IOException {
        try (JarFile library = new JarFile(path)) {
            for (JarEntry entry : (Iterable<JarEntry>) library.stream()::iterator) {
                if (entry.getName().endsWith(".class") && !entry.getName().endsWith("module-info.class")) {
                    try (InputStream in = library.getInputStream(entry)) {
                        add(entries, entry.getName(), in.readAllBytes());
                    }
                }
            }
        }
    }

    private static void add(Map<String, byte[]> entries, String name, byte[] content) {
        if (!name.endsWith(".class")) {
            entries.put(name, content);
            return;
        }
        ClassWriter writer = new ClassWriter(0);
        Move move = new Move();
        new ClassReader(content).accept(new ClassRemapper(writer, move), 0);
        entries.put(move.map(name), writer.toByteArray());
    }

    private static byte[] manifest(String version, int jarEntries) throws IOException {
        Manifest manifest = new Manifest();
        Attributes main = manifest.getMainAttributes();
        main.put(Attributes.Name.MANIFEST_VERSION, "1.0");
        main.put(Attributes.Name.IMPLEMENTATION_VERSION, version);
        main.putValue("Premain-Class", "com.velora.agent.Premain");
        main.putValue("Boot-Class-Path", "velora.jar"); // the collector binds natives of the boot loader's classes
        main.putValue("Velora-Entries", String.valueOf(jarEntries)); // the native side looks whether all are there
        java.io.ByteArrayOutputStream out = new java.io.ByteArrayOutputStream();
        manifest.write(out);
        return out.toByteArray();
    }

    private static void write(JarOutputStream jar, String name, byte[] content) throws IOException {
        ZipEntry entry = new ZipEntry(name);
        entry.setTime(FIXED_TIME);
        // As they are: the native side checks every entry before the VM sees the jar, and has no decompressor.
        CRC32 sum = new CRC32();
        sum.update(content);
        entry.setMethod(ZipEntry.STORED);
        entry.setSize(content.length);
        entry.setCrc(sum.getValue());
        jar.putNextEntry(entry);
        OutputStream out = jar;
        out.write(content);
        jar.closeEntry();
    }
}
