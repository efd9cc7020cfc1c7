import com.velora.bcm.bootstrap.BcmBootstrap;
import com.velora.shaded.asm.ClassReader;
import com.velora.shaded.asm.ClassVisitor;
import com.velora.shaded.asm.ClassWriter;
import com.velora.shaded.asm.Opcodes;

import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;

/**
 * Class loaders with class files of an old version, as the collector rewrites them when they are defined:
 * Injected MAJOR LOADER... The instrumenter turns "plain" into "woven" in what they define. Prints one line per loader:
 * its name, what an instrumented payload says, and what one says that the instrumenter left alone.
 */
public final class Injected {
    /** Defines its own copies of classes, written anew as class files of an old version. */
    private static final class OldVersions extends ClassLoader {
        private final int major;

        OldVersions(int major) {
            super(Injected.class.getClassLoader());
            this.major = major;
        }

        Definer make(String name) throws Exception {
            ClassWriter old = new ClassWriter(0);
            ClassVisitor withOldVersion = new ClassVisitor(Opcodes.ASM9, old) {
                @Override
                public void visit(int version, int access, String self, String signature, String parent,
                        String[] interfaces) {
                    super.visit(major, access, self, signature, parent, interfaces);
                }
            };
            new ClassReader(bytesOf(name)).accept(withOldVersion, ClassReader.SKIP_FRAMES);
            byte[] bytes = old.toByteArray();
            return (Definer) defineClass(name, bytes, 0, bytes.length).getDeclaredConstructor().newInstance();
        }
    }

    private static volatile boolean weaving;
    private static volatile ClassLoader seenLoader;
    private static volatile String seenName;

    static byte[] bytesOf(String name) throws Exception {
        try (InputStream in = Injected.class.getResourceAsStream(name + ".class")) {
            return in.readAllBytes();
        }
    }

    /** The loaders cannot ask their own class: their version has no class constants. */
    public static ClassLoader parent() {
        return Injected.class.getClassLoader();
    }

    private static byte[] weave(ClassLoader loader, String name, byte[] classFile) {
        seenLoader = loader;
        seenName = name;
        if (!weaving) {
            return null;
        }
        String text = new String(classFile, StandardCharsets.ISO_8859_1);
        return text.replace("plain", "woven").getBytes(StandardCharsets.ISO_8859_1);
    }

    private static String define(Definer loader, boolean woven) throws Exception {
        weaving = woven;
        seenLoader = null;
        byte[] bytes = bytesOf("Injected$Payload");
        byte[] padded = new byte[bytes.length + 7];
        Arrays.fill(padded, (byte) 0x55);
        System.arraycopy(bytes, 0, padded, 3, bytes.length);
        Class<?> defined = loader.define("Injected$Payload", padded, 3, bytes.length);
        String says = defined.getDeclaredConstructor().newInstance().toString();
        if (defined.getClassLoader() != loader) {
            return "defined elsewhere";
        }
        boolean shown = seenLoader == loader && "Injected$Payload".equals(seenName);
        return says + (shown ? "" : " unseen");
    }

    public static void main(String[] args) throws Exception {
        BcmBootstrap.setInstrumenter(Injected::weave);
        int major = Integer.parseInt(args[0]);
        for (String name : Arrays.copyOfRange(args, 1, args.length)) {
            OldVersions host = new OldVersions(major);
            Definer first = host.make("Injected$" + name);
            Definer second = (Definer) first.getClass().getDeclaredConstructor().newInstance();
            System.out.println(name + ": " + define(first, true) + ", " + define(second, false));
        }
    }

    /** What the loaders define. */
    public static class Payload {
        @Override
        public String toString() {
            return "plain";
        }
    }

    public interface Definer {
        Class<?> define(String name, byte[] bytes, int offset, int length);
    }

    // The loaders. Their class files mention "Exceptions" and ClassFormatError, as real ones do, because the method that
    // is added to them is declared to throw it.

    /** Calls what it inherits, from two places. */
    public static class InheritedLoader extends ClassLoader implements Definer {
        public InheritedLoader() {
            super(parent());
        }

        @Override
        public Class<?> define(String name, byte[] bytes, int offset, int length) throws ClassFormatError {
            if (offset > 0) {
                return defineClass(name, bytes, offset, length);
            }
            return defineClass(name, bytes, 0, bytes.length);
        }
    }

    /** Calls a private method of its own. */
    public static class PrivateLoader extends ClassLoader implements Definer {
        public PrivateLoader() {
            super(parent());
        }

        private Class<?> own(String name, byte[] bytes, int offset, int length) throws ClassFormatError {
            return super.defineClass(name, bytes, offset, length);
        }

        @Override
        public Class<?> define(String name, byte[] bytes, int offset, int length) {
            return own(name, bytes, offset, length);
        }
    }

    /** Calls a final method of its own. */
    public static class FinalLoader extends ClassLoader implements Definer {
        public FinalLoader() {
            super(parent());
        }

        final Class<?> own(String name, byte[] bytes, int offset, int length) throws ClassFormatError {
            return super.defineClass(name, bytes, offset, length);
        }

        @Override
        public Class<?> define(String name, byte[] bytes, int offset, int length) {
            return own(name, bytes, offset, length);
        }
    }

    /** Calls a static method of its own. */
    public static class StaticLoader extends ClassLoader implements Definer {
        public StaticLoader() {
            super(parent());
        }

        static Class<?> own(ClassLoader loader, String name, byte[] bytes, int offset, int length)
                throws ClassFormatError {
            return ((StaticLoader) loader).plainly(name, bytes, offset, length);
        }

        private Class<?> plainly(String name, byte[] bytes, int offset, int length) {
            return super.defineClass(name, bytes, offset, length);
        }

        @Override
        public Class<?> define(String name, byte[] bytes, int offset, int length) {
            return own(this, name, bytes, offset, length);
        }
    }

    /** Calls a method whose parameters are of every size. */
    public static class WideLoader extends ClassLoader implements Definer {
        public WideLoader() {
            super(parent());
        }

        Class<?> own(long stamp, String name, double weight, byte[] bytes, int offset, int length, float share)
                throws ClassFormatError {
            if (stamp != 0x123456789ABCDEFL || weight != 2.5 || share != 0.25f) {
                throw new ClassFormatError("a parameter has changed");
            }
            return super.defineClass(name, bytes, offset, length);
        }

        @Override
        public Class<?> define(String name, byte[] bytes, int offset, int length) {
            return own(0x123456789ABCDEFL, name, 2.5, bytes, offset, length, 0.25f);
        }
    }
}
