package com.velora.instrument;

import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.Label;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;
import org.objectweb.asm.Type;
import org.objectweb.asm.commons.LocalVariablesSorter;

/**
 * Rewrites HttpServlet.service(ServletRequest, ServletResponse), which a container calls exactly once per dispatch
 * (subclasses override the protected method of that name, so nothing is counted twice), to
 *
 * <pre>
 *   boolean started = false;  ServletConfig config = null;  String name = null;
 *   if (ServletProbe.on) {
 *       try {
 *           if (request instanceof HttpServletRequest) {
 *               config = getServletConfig();
 *               if (config != null) name = config.getServletName();
 *               started = ServletProbe.start(this, config, name, request.getContextPath(),
 *                       request.getAttribute("...include.request_uri"), request.getRequestURI(), request.getRemoteUser());
 *           }
 *       } catch (Throwable ours) { ServletProbe.failed(ours); }
 *   }
 *   try { ... as it was ... ServletProbe.finish(started); return; }
 *   catch (Throwable t) { ServletProbe.error(t, started, this); throw t; }
 * </pre>
 *
 * The calls are plain calls of the servlet API, so there is no reflection per request. The stack map frames of the
 * new branches are written out, so no class has to be loaded to compute them.
 */
final class ServletInstrumenter {
    /** The newest class-file version that the bundled ASM reads (Java 20). */
    private static final int NEWEST_READABLE = Opcodes.V20;
    private static final String PROBE = "com/velora/probe/servlet/ServletProbe";

    private ServletInstrumenter() {
    }

    /** @param api "jakarta" or "javax"; the result is null when the class has no such method */
    static byte[] instrument(byte[] classFile, String api) {
        byte[] readable = classFile.clone();
        int version = (classFile[6] & 0xFF) << 8 | (classFile[7] & 0xFF);
        boolean newer = version > NEWEST_READABLE;
        if (newer) { // the format grows by attributes, which are carried along; only the reader's own check stops it
            readable[6] = (byte) (NEWEST_READABLE >> 8);
            readable[7] = (byte) NEWEST_READABLE;
        }
        ClassReader reader = new ClassReader(readable);
        ClassWriter writer = new ClassWriter(reader, ClassWriter.COMPUTE_MAXS);
        ServiceFinder finder = new ServiceFinder(writer, api);
        reader.accept(finder, ClassReader.EXPAND_FRAMES);
        if (!finder.found) {
            return null;
        }
        byte[] result = writer.toByteArray();
        result[6] = classFile[6];
        result[7] = classFile[7];
        return result;
    }

    private static final class ServiceFinder extends ClassVisitor {
        private final String api;
        private final String descriptor;
        private boolean found;

        ServiceFinder(ClassVisitor next, String api) {
            super(Opcodes.ASM9, next);
            this.api = api;
            this.descriptor = "(L" + api + "/servlet/ServletRequest;L" + api + "/servlet/ServletResponse;)V";
        }

        @Override
        public MethodVisitor visitMethod(int access, String name, String desc, String signature, String[] exceptions) {
            MethodVisitor next = super.visitMethod(access, name, desc, signature, exceptions);
            if (!name.equals("service") || !desc.equals(descriptor) || (access & Opcodes.ACC_ABSTRACT) != 0) {
                return next;
            }
            found = true;
            return new ServiceWrapper(access, desc, next, api);
        }
    }

    private static final class ServiceWrapper extends LocalVariablesSorter {
        private static final int THIS = 0;
        private static final int REQUEST = 1;

        private final String servlet;
        private final String request;
        private final String httpRequest;
        private final String response;
        private final String config;
        private final String includeAttribute;
        private final Label bodyStart = new Label();
        private final Label bodyEnd = new Label();
        private int started;
        private int configLocal;
        private int nameLocal;

        ServiceWrapper(int access, String desc, MethodVisitor next, String api) {
            super(Opcodes.ASM9, access, desc, next);
            servlet = api + "/servlet/http/HttpServlet";
            request = api + "/servlet/ServletRequest";
            httpRequest = api + "/servlet/http/HttpServletRequest";
            response = api + "/servlet/ServletResponse";
            config = api + "/servlet/ServletConfig";
            includeAttribute = api + ".servlet.include.request_uri";
        }

        @Override
        public void visitCode() {
            super.visitCode();
            clearLocals();
            Label body = new Label();
            mv.visitFieldInsn(Opcodes.GETSTATIC, PROBE, "on", "Z");
            mv.visitJumpInsn(Opcodes.IFEQ, body);
            startProbe(body);
            mv.visitLabel(body);
            frame();
            mv.visitInsn(Opcodes.NOP); // so that a frame of the method's own first instruction finds no other here
            mv.visitLabel(bodyStart);
        }

        private void clearLocals() {
            started = newLocal(Type.BOOLEAN_TYPE);
            configLocal = newLocal(Type.getObjectType(config));
            nameLocal = newLocal(Type.getType(String.class));
            mv.visitInsn(Opcodes.ICONST_0);
            mv.visitVarInsn(Opcodes.ISTORE, started);
            mv.visitInsn(Opcodes.ACONST_NULL);
            mv.visitVarInsn(Opcodes.ASTORE, configLocal);
            mv.visitInsn(Opcodes.ACONST_NULL);
            mv.visitVarInsn(Opcodes.ASTORE, nameLocal);
        }

        private void startProbe(Label body) {
            Label tryStart = new Label();
            Label tryEnd = new Label();
            Label ours = new Label();
            Label nameless = new Label();
            mv.visitTryCatchBlock(tryStart, tryEnd, ours, "java/lang/Throwable");
            mv.visitLabel(tryStart);
            mv.visitVarInsn(Opcodes.ALOAD, REQUEST);
            mv.visitTypeInsn(Opcodes.INSTANCEOF, httpRequest);
            mv.visitJumpInsn(Opcodes.IFEQ, body);
            mv.visitVarInsn(Opcodes.ALOAD, THIS);
            mv.visitMethodInsn(Opcodes.INVOKEVIRTUAL, servlet, "getServletConfig", "()L" + config + ";", false);
            mv.visitVarInsn(Opcodes.ASTORE, configLocal);
            mv.visitVarInsn(Opcodes.ALOAD, configLocal);
            mv.visitJumpInsn(Opcodes.IFNULL, nameless);
            mv.visitVarInsn(Opcodes.ALOAD, configLocal);
            mv.visitMethodInsn(Opcodes.INVOKEINTERFACE, config, "getServletName", "()Ljava/lang/String;", true);
            mv.visitVarInsn(Opcodes.ASTORE, nameLocal);
            mv.visitLabel(nameless);
            frame();
            mv.visitVarInsn(Opcodes.ALOAD, THIS);
            mv.visitVarInsn(Opcodes.ALOAD, configLocal);
            mv.visitVarInsn(Opcodes.ALOAD, nameLocal);
            requestText("getContextPath");
            mv.visitVarInsn(Opcodes.ALOAD, REQUEST);
            mv.visitLdcInsn(includeAttribute);
            mv.visitMethodInsn(Opcodes.INVOKEINTERFACE, request, "getAttribute",
                    "(Ljava/lang/String;)Ljava/lang/Object;", true);
            requestText("getRequestURI");
            requestText("getRemoteUser");
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, PROBE, "start",
                    "(Ljava/lang/Object;Ljava/lang/Object;Ljava/lang/String;Ljava/lang/String;Ljava/lang/Object;"
                            + "Ljava/lang/String;Ljava/lang/String;)Z", false);
            mv.visitVarInsn(Opcodes.ISTORE, started);
            mv.visitLabel(tryEnd);
            mv.visitJumpInsn(Opcodes.GOTO, body);
            mv.visitLabel(ours);
            frame("java/lang/Throwable");
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, PROBE, "failed", "(Ljava/lang/Throwable;)V", false);
        }

        private void requestText(String getter) {
            mv.visitVarInsn(Opcodes.ALOAD, REQUEST);
            mv.visitTypeInsn(Opcodes.CHECKCAST, httpRequest);
            mv.visitMethodInsn(Opcodes.INVOKEINTERFACE, httpRequest, getter, "()Ljava/lang/String;", true);
        }

        @Override
        public void visitInsn(int opcode) {
            if (opcode == Opcodes.RETURN) {
                mv.visitVarInsn(Opcodes.ILOAD, started);
                mv.visitMethodInsn(Opcodes.INVOKESTATIC, PROBE, "finish", "(Z)V", false);
            }
            super.visitInsn(opcode);
        }

        @Override
        public void visitMaxs(int maxStack, int maxLocals) {
            mv.visitLabel(bodyEnd);
            // Last in the table: the method's own handlers come first.
            mv.visitTryCatchBlock(bodyStart, bodyEnd, bodyEnd, "java/lang/Throwable");
            frame("java/lang/Throwable");
            mv.visitInsn(Opcodes.DUP);
            mv.visitVarInsn(Opcodes.ILOAD, started);
            mv.visitVarInsn(Opcodes.ALOAD, THIS);
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, PROBE, "error", "(Ljava/lang/Throwable;ZLjava/lang/Object;)V", false);
            mv.visitInsn(Opcodes.ATHROW);
            super.visitMaxs(maxStack, maxLocals);
        }

        /** A full frame of the arguments and our three locals; stack as given. */
        private void frame(Object... stack) {
            Object[] locals = {servlet, request, response, Opcodes.INTEGER, config, "java/lang/String"};
            mv.visitFrame(Opcodes.F_NEW, locals.length, locals, stack.length, stack);
        }
    }
}
